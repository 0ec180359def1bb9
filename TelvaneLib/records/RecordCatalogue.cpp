// The list of all record classes. Each line defines what TELVANE_RECORD declares in the class, and enters the
// class into the catalogue. Tests compare this list with an independent one, so a missing line is found.

#include <Telvane/RecordCatalogue.h>

#include <Telvane/AutomationStatus.h>
#include <Telvane/DateTime.h>
#include <Telvane/DeviceRecords.h>
#include <Telvane/MemorySlotRecords.h>
#include <Telvane/ModuleRecords.h>
#include <Telvane/PSCommand.h>
#include <Telvane/PSFeedback.h>
#include <Telvane/PSMemorySlot.h>
#include <Telvane/PSPrimitives.h>
#include <Telvane/PSWeldCommand.h>
#include <Telvane/PanelRecords.h>
#include <Telvane/RequestType.h>
#include <Telvane/RtaModuleRecords.h>
#include <Telvane/WeldRecords.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

#define TELVANE_CATALOGUE(RECORD, DERIVED_RECORD)                                                            \
    /* Weld data */                                                                                          \
    RECORD(WeldTriggerStart)                                                                                 \
    RECORD(WeldTriggerEnd)                                                                                   \
    RECORD(WeldMetrics)                                                                                      \
    RECORD(WeldTraceDataPoint)                                                                               \
    RECORD(WeldTraceDataPointDefinition)                                                                     \
    RECORD(WeldTraceData)                                                                                    \
    RECORD(UnitValuePair)                                                                                    \
    RECORD(UnitValueDoublePair)                                                                              \
    RECORD(MachineSettings)                                                                                  \
    RECORD(TelvaneDataConfirmation)                                                                          \
    RECORD(TelvaneDataFullStatus)                                                                            \
    RECORD(DataStatus)                                                                                       \
    RECORD(LogData)                                                                                          \
    /* Device identity, capabilities and settings */                                                         \
    RECORD(DeviceIdentity)                                                                                   \
    RECORD(DeviceCapabilities)                                                                               \
    RECORD(DeviceSettings)                                                                                   \
    RECORD(HALInfo)                                                                                          \
    RECORD(HALStatus)                                                                                        \
    RECORD(PowerSourceConnection)                                                                            \
    RECORD(ProcessSettings)                                                                                  \
    RECORD(SystemHealth)                                                                                     \
    RECORD(PowerDownStatus)                                                                                  \
    RECORD(AdminAccessSettings)                                                                              \
    RECORD(MessageSerialType)                                                                                \
    RECORD(TelvaneError)                                                                                     \
    RECORD(ApiErrorMessage)                                                                                  \
    /* Memory slots and weld programs */                                                                     \
    RECORD(WeldProcessLibraryRequest)                                                                        \
    RECORD(WeldProcessLibraryReport)                                                                         \
    RECORD(GetMemorySlotSettingsRequest)                                                                     \
    RECORD(MemorySlotDownloadSummary)                                                                        \
    RECORD(MemorySlotFleetManagementDownloadSettings)                                                        \
    RECORD(SetMemorySlotSettingsWeldControlRequest)                                                          \
    RECORD(MemorySlotSettingsReport)                                                                         \
    RECORD(MemorySlotSettingsWeldControlReply)                                                               \
    RECORD(MemorySlotSettingsGlobal)                                                                         \
    RECORD(MemorySlotLimitsEnable)                                                                           \
    /* Lights, torches and user interface */                                                                 \
    RECORD(SystemLedStatus)                                                                                  \
    RECORD(TelvaneLedStatus)                                                                                 \
    RECORD(LedSettings)                                                                                      \
    RECORD(FerroluxLedFlags)                                                                                 \
    RECORD(TorchDisable)                                                                                     \
    RECORD(LtdTorchConfiguration)                                                                            \
    RECORD(LtdTorchButtonRequest)                                                                            \
    RECORD(SystemLockMemoryState)                                                                            \
    RECORD(UIMenuStatus)                                                                                     \
    /* Network, time, files, firmware and configuration */                                                   \
    RECORD(NetworkInfo)                                                                                      \
    RECORD(TimeSyncType)                                                                                     \
    RECORD(TimeType)                                                                                         \
    RECORD(USBDetection)                                                                                     \
    RECORD(FileInfoType)                                                                                     \
    RECORD(ErrorLogType)                                                                                     \
    RECORD(IncomingCommands)                                                                                 \
    RECORD(CarrierFileInfo)                                                                                  \
    RECORD(CarrierInfo)                                                                                      \
    RECORD(CanTelvaneUpdateCode)                                                                             \
    RECORD(FirmwareUpdateStart)                                                                              \
    RECORD(FirmwareUpdateEnd)                                                                                \
    RECORD(PostConfig)                                                                                       \
    RECORD(ConfigRequest)                                                                                    \
    RECORD(ConfigReply)                                                                                      \
    RECORD(SocketInfo)                                                                                       \
    RECORD(SocketConnectionStatus)                                                                           \
    /* Real-time module */                                                                                   \
    RECORD(RtaModuleOutBoundData)                                                                            \
    RECORD(RtaModuleInBoundData)                                                                             \
    RECORD(RtaModuleData)                                                                                    \
    RECORD(RtaModuleDataRequest)                                                                             \
    /* Power-source primitives */                                                                            \
    RECORD(ValueType)                                                                                        \
    RECORD(FlagType)                                                                                         \
    RECORD(ValueLabelType)                                                                                   \
    RECORD(FlagLabelType)                                                                                    \
    RECORD(ProgramType)                                                                                      \
    RECORD(PSFunctionRequest)                                                                                \
    /* Power-source commands, feedback and memory slots */                                                   \
    RECORD(PSCommandBase)                                                                                    \
    DERIVED_RECORD(PSCommand, PSCommandBase)                                                                 \
    DERIVED_RECORD(PSProgramCommand, PSCommandBase)                                                          \
    RECORD(PSWeldCommandBase)                                                                                \
    DERIVED_RECORD(PSWeldCommand, PSWeldCommandBase)                                                         \
    RECORD(PSFeedbackBase)                                                                                   \
    DERIVED_RECORD(PSFeedback, PSFeedbackBase)                                                               \
    RECORD(PSMemorySlotBase)                                                                                 \
    DERIVED_RECORD(PSMemorySlot, PSMemorySlotBase)                                                           \
    RECORD(AutomationStatus)                                                                                 \
    /* Requests */                                                                                           \
    RECORD(RequestType)

namespace Telvane
{

TELVANE_CATALOGUE(TELVANE_DEFINE_RECORD, TELVANE_DEFINE_DERIVED_RECORD)

namespace
{

template <class Record, class Base = TelvaneDataTypeBase>
RecordClass entry(const char* name, const char* base)
{
    static_assert(std::is_base_of_v<Base, Record>, "a record derives from the base that it names");
    return {name, base, &Record::recordTable, &Detail::newRecord<Record>};
}

std::vector<RecordClass> makeCatalogue()
{
#define TELVANE_ENTRY(Class) entry<Class>(#Class, "TelvaneDataTypeBase"),
#define TELVANE_DERIVED_ENTRY(Class, Base) entry<Class, Base>(#Class, #Base),
    std::vector<RecordClass> classes = {
        TELVANE_CATALOGUE(TELVANE_ENTRY, TELVANE_DERIVED_ENTRY)
            TELVANE_ENTRY(DateTime) // has its own JSON form, defined in DateTime.cpp
    };
#undef TELVANE_ENTRY
#undef TELVANE_DERIVED_ENTRY
    std::sort(classes.begin(), classes.end(), [](const RecordClass& left, const RecordClass& right) {
        return std::strcmp(left.name, right.name) < 0;
    });
    return classes;
}

} // namespace

const std::vector<RecordClass>& RecordCatalogue::classes()
{
    static const std::vector<RecordClass> catalogue = makeCatalogue();
    return catalogue;
}

const RecordClass* RecordCatalogue::find(const std::string& name)
{
    const auto& all = classes();
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&name](const RecordClass& candidate) { return name == candidate.name; });
    return found != all.end() ? &*found : nullptr;
}

std::unique_ptr<TelvaneDataTypeBase> RecordCatalogue::build(const std::string& name)
{
    const RecordClass* const found = find(name);
    return std::unique_ptr<TelvaneDataTypeBase>(found != nullptr ? found->build() : nullptr);
}

} // namespace Telvane
