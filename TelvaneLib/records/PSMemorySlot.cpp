// A new slot has 8 programs. The count may change when a slot is read.

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
