/// \file
/// One memory slot of the power source, with the weld programs stored under it.
#pragma once

#include <Telvane/PSPrimitives.h>
#include <Telvane/RecordTable.h>

#include <vector>

namespace Telvane
{

/// The data of a memory slot, and its JSON form.
class TELVANE_EXPORT PSMemorySlotBase : public TelvaneDataTypeBase
{
public:
    int mMemory = 0;                    ///< number of the memory slot
    std::vector<ProgramType> mPrograms; ///< the programs of the slot, in order

    TELVANE_RECORD(PSMemorySlotBase, mMemory, mPrograms)
};

/// A memory slot, with 8 empty programs from construction.
class TELVANE_EXPORT PSMemorySlot : public PSMemorySlotBase
{
public:
    PSMemorySlot();

    /// Zeroes the slot's number and every program it now holds. The count of programs stays: reading may
    /// have brought another one than 8.
    void Initialize();

    /// \return the low 8 bits of the slot's number, which only reading can make larger than 255
    unsigned char GetMemory() const;
    /// Sets the slot's number.
    void SetMemory(unsigned char memory);

    /// \return the programs, to be read and changed in place; valid as long as this record
    std::vector<ProgramType>& GetPrograms();

    TELVANE_DERIVED_RECORD(PSMemorySlot)
};

} // namespace Telvane
