/// \file
/// Memory slot of the power source with its weld programs.
#pragma once

#include <Telvane/PSPrimitives.h>
#include <Telvane/RecordTable.h>

#include <vector>

namespace Telvane
{

/// Data of a memory slot.
class TELVANE_EXPORT PSMemorySlotBase : public TelvaneDataTypeBase
{
public:
    int mMemory = 0;                    ///< number of the slot
    std::vector<ProgramType> mPrograms; ///< weld programs of the slot, in order

    TELVANE_RECORD(PSMemorySlotBase, mMemory, mPrograms)
};

/// Memory slot with access to its number and programs.
class TELVANE_EXPORT PSMemorySlot : public PSMemorySlotBase
{
public:
    /// Creates slot 0 with 8 programs whose codes are all 0.
    PSMemorySlot();

    /// Sets the number of the slot and all codes of its programs to 0. Keeps the count of programs: it is not
    /// 8 if another count was unpackaged.
    void Initialize();

    /// \return the low 8 bits of the slot's number, which is above 255 only if such a number was unpackaged
    unsigned char GetMemory() const;
    /// Sets the number of the slot, 0 to 255.
    void SetMemory(unsigned char memory);

    /// \return the programs, for reading and changing
    /// \par Ownership The record owns them; the reference is valid as long as the record.
    std::vector<ProgramType>& GetPrograms();

    TELVANE_DERIVED_RECORD(PSMemorySlot)
};

} // namespace Telvane
