/// \file
/// Data exchanged with an Rta module. The programs at both ends define the meaning and unit of each slot.
#pragma once

#include <Telvane/RecordTable.h>

namespace Telvane
{

/// Values for the module.
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
    std::string PartLabel; ///< label of the part that is made

    TELVANE_RECORD(RtaModuleOutBoundData, One, Two, Three, Four, Five, Six, Seven, Eight, Nine, PartLabel)
};

/// Values from the module: four slots, where RtaModuleOutBoundData has nine.
class TELVANE_EXPORT RtaModuleInBoundData : public TelvaneDataTypeBase
{
public:
    int One = 0;           ///< slot 1
    int Two = 0;           ///< slot 2
    int Three = 0;         ///< slot 3
    int Four = 0;          ///< slot 4
    std::string PartLabel; ///< label of the part that is made

    TELVANE_RECORD(RtaModuleInBoundData, One, Two, Three, Four, PartLabel)
};

/// The values of both directions, and the module's status.
class TELVANE_EXPORT RtaModuleData : public TelvaneDataTypeBase
{
public:
    RtaModuleOutBoundData OutBoundData; ///< values for the module
    RtaModuleInBoundData InBoundData;   ///< values from the module
    int Status = 0;                     ///< status, a code of the module

    TELVANE_RECORD(RtaModuleData, OutBoundData, InBoundData, Status)
};

/// Request for the current RtaModuleData.
class TELVANE_EXPORT RtaModuleDataRequest : public TelvaneDataTypeBase
{
public:
    bool Request = false; ///< true to request the data

    TELVANE_RECORD(RtaModuleDataRequest, Request)
};

} // namespace Telvane
