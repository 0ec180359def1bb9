/// \file
/// Data exchanged with an Rta module. The slots are positional: the processes on both ends give them their
/// meaning and unit.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// The values sent out to the module.
class TELVANE_EXPORT RtaModuleOutBoundData : public TelvaneDataTypeBase
{
public:
    int One = 0;           ///< slot 1
    int Two = 0;           ///< slot 2
    int Three = 0;         ///< slot 3
    int Four = 0;          ///< slot 4
    int Five = 0;          ///< slot 5
    int Six = 0;           ///< slot 6
    int Seven = 0;         ///< slot 7
    int Eight = 0;         ///< slot 8
    int Nine = 0;          ///< slot 9
    std::string PartLabel; ///< label of the part

    TELVANE_RECORD(RtaModuleOutBoundData, One, Two, Three, Four, Five, Six, Seven, Eight, Nine, PartLabel)
};

/// The values received from the module: four slots where the outbound block has nine.
class TELVANE_EXPORT RtaModuleInBoundData : public TelvaneDataTypeBase
{
public:
    int One = 0;           ///< slot 1
    int Two = 0;           ///< slot 2
    int Three = 0;         ///< slot 3
    int Four = 0;          ///< slot 4
    std::string PartLabel; ///< label of the part

    TELVANE_RECORD(RtaModuleInBoundData, One, Two, Three, Four, PartLabel)
};

/// Both blocks and the module's status.
class TELVANE_EXPORT RtaModuleData : public TelvaneDataTypeBase
{
public:
    RtaModuleOutBoundData OutBoundData; ///< the outbound block
    RtaModuleInBoundData InBoundData;   ///< the inbound block
    int Status = 0;                     ///< status code of the module

    TELVANE_RECORD(RtaModuleData, OutBoundData, InBoundData, Status)
};

/// Asks for the current RtaModuleData.
class TELVANE_EXPORT RtaModuleDataRequest : public TelvaneDataTypeBase
{
public:
    bool Request = false; ///< true to request the data

    TELVANE_RECORD(RtaModuleDataRequest, Request)
};

} // namespace Telvane
