// The count of programs belongs to the data, not to the class: 8 is only where a new slot begins.

#include <Telvane/PSMemorySlot.h>

namespace Telvane
{

PSMemorySlot::PSMemorySlot()
{
    mPrograms.resize(8);
}

void PSMemorySlot::Initialize()
{
    mMemory = 0;
    for (ProgramType& program : mPrograms) {
        program.PROC = 0;
        program.WT = 0;
        program.WS = 0;
        program.GT = 0;
    }
}

unsigned char PSMemorySlot::GetMemory() const
{
    return static_cast<unsigned char>(mMemory);
}

void PSMemorySlot::SetMemory(unsigned char memory)
{
    mMemory = memory;
}

std::vector<ProgramType>& PSMemorySlot::GetPrograms()
{
    return mPrograms;
}

} // namespace Telvane
