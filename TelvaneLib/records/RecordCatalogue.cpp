// The list of all record classes. A class that is missing here cannot be named by the tool, so the tests hold
// this list against an independent one.

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

namespace Telvane
{

namespace
{

template <class Record, class Base = TelvaneDataTypeBase>
RecordClass entry(const char* name, const char* base)
{
    static_assert(std::is_base_of_v<Base, Record>, "a record derives from the base that it names");
    return {name, base, &Record::recordTable, []() -> TelvaneDataTypeBase* {
                return new Record();
            }};
}

std::vector<RecordClass> makeCatalogue()
{
#define TELVANE_ENTRY(Class) entry<Class>(#Class, "TelvaneDataTypeBase")
#define TELVANE_DERIVED_ENTRY(Class, Base) entry<Class, Base>(#Class, #Base)
    std::vector<RecordClass> classes = {
        // Weld data
        TELVANE_ENTRY(WeldTriggerStart),
        TELVANE_ENTRY(WeldTriggerEnd),
        TELVANE_ENTRY(WeldMetrics),
        TELVANE_ENTRY(WeldTraceDataPoint),
        TELVANE_ENTRY(WeldTraceDataPointDefinition),
        TELVANE_ENTRY(WeldTraceData),
        TELVANE_ENTRY(UnitValuePair),
        TELVANE_ENTRY(UnitValueDoublePair),
        TELVANE_ENTRY(MachineSettings),
        TELVANE_ENTRY(TelvaneDataConfirmation),
        TELVANE_ENTRY(TelvaneDataFullStatus),
        TELVANE_ENTRY(DataStatus),
        TELVANE_ENTRY(LogData),
        // Device identity, capabilities and settings
        TELVANE_ENTRY(DeviceIdentity),
        TELVANE_ENTRY(DeviceCapabilities),
        TELVANE_ENTRY(DeviceSettings),
        TELVANE_ENTRY(HALInfo),
        TELVANE_ENTRY(HALStatus),
        TELVANE_ENTRY(PowerSourceConnection),
        TELVANE_ENTRY(ProcessSettings),
        TELVANE_ENTRY(SystemHealth),
        TELVANE_ENTRY(PowerDownStatus),
        TELVANE_ENTRY(AdminAccessSettings),
        TELVANE_ENTRY(MessageSerialType),
        TELVANE_ENTRY(TelvaneError),
        TELVANE_ENTRY(ApiErrorMessage),
        // Memory slots and weld programs
        TELVANE_ENTRY(WeldProcessLibraryRequest),
        TELVANE_ENTRY(WeldProcessLibraryReport),
        TELVANE_ENTRY(GetMemorySlotSettingsRequest),
        TELVANE_ENTRY(MemorySlotDownloadSummary),
        TELVANE_ENTRY(MemorySlotFleetManagementDownloadSettings),
        TELVANE_ENTRY(SetMemorySlotSettingsWeldControlRequest),
        TELVANE_ENTRY(MemorySlotSettingsReport),
        TELVANE_ENTRY(MemorySlotSettingsWeldControlReply),
        TELVANE_ENTRY(MemorySlotSettingsGlobal),
        TELVANE_ENTRY(MemorySlotLimitsEnable),
        // Lights, torches and user interface
        TELVANE_ENTRY(SystemLedStatus),
        TELVANE_ENTRY(TelvaneLedStatus),
        TELVANE_ENTRY(LedSettings),
        TELVANE_ENTRY(FerroluxLedFlags),
        TELVANE_ENTRY(TorchDisable),
        TELVANE_ENTRY(LtdTorchConfiguration),
        TELVANE_ENTRY(LtdTorchButtonRequest),
        TELVANE_ENTRY(SystemLockMemoryState),
        TELVANE_ENTRY(UIMenuStatus),
        // Network, time, files, firmware and configuration
        TELVANE_ENTRY(NetworkInfo),
        TELVANE_ENTRY(TimeSyncType),
        TELVANE_ENTRY(TimeType),
        TELVANE_ENTRY(USBDetection),
        TELVANE_ENTRY(FileInfoType),
        TELVANE_ENTRY(ErrorLogType),
        TELVANE_ENTRY(IncomingCommands),
        TELVANE_ENTRY(CarrierFileInfo),
        TELVANE_ENTRY(CarrierInfo),
        TELVANE_ENTRY(CanTelvaneUpdateCode),
        TELVANE_ENTRY(FirmwareUpdateStart),
        TELVANE_ENTRY(FirmwareUpdateEnd),
        TELVANE_ENTRY(PostConfig),
        TELVANE_ENTRY(ConfigRequest),
        TELVANE_ENTRY(ConfigReply),
        TELVANE_ENTRY(SocketInfo),
        TELVANE_ENTRY(SocketConnectionStatus),
        // Real-time module
        TELVANE_ENTRY(RtaModuleOutBoundData),
        TELVANE_ENTRY(RtaModuleInBoundData),
        TELVANE_ENTRY(RtaModuleData),
        TELVANE_ENTRY(RtaModuleDataRequest),
        // Power-source primitives
        TELVANE_ENTRY(ValueType),
        TELVANE_ENTRY(FlagType),
        TELVANE_ENTRY(ValueLabelType),
        TELVANE_ENTRY(FlagLabelType),
        TELVANE_ENTRY(ProgramType),
        TELVANE_ENTRY(PSFunctionRequest),
        // Power-source commands, feedback and memory slots
        TELVANE_ENTRY(PSCommandBase),
        TELVANE_DERIVED_ENTRY(PSCommand, PSCommandBase),
        TELVANE_DERIVED_ENTRY(PSProgramCommand, PSCommandBase),
        TELVANE_ENTRY(PSWeldCommandBase),
        TELVANE_DERIVED_ENTRY(PSWeldCommand, PSWeldCommandBase),
        TELVANE_ENTRY(PSFeedbackBase),
        TELVANE_DERIVED_ENTRY(PSFeedback, PSFeedbackBase),
        TELVANE_ENTRY(PSMemorySlotBase),
        TELVANE_DERIVED_ENTRY(PSMemorySlot, PSMemorySlotBase),
        TELVANE_ENTRY(AutomationStatus),
        // Time and requests
        TELVANE_ENTRY(DateTime),
        TELVANE_ENTRY(RequestType),
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
