// The list of all record classes. A class that is missing here cannot be named by the tool, so the tests hold
// this list against an independent one.

#include <Telvane/RecordCatalogue.h>

#include <Telvane/DateTime.h>
#include <Telvane/PSPrimitives.h>
#include <Telvane/RequestType.h>
#include <Telvane/WeldRecords.h>

#include <algorithm>
#include <cstring>

namespace Telvane
{

namespace
{

template <class Record>
RecordClass entry(const char* name, const char* base = "TelvaneDataTypeBase")
{
    return {name, base, &Record::recordTable, []() -> TelvaneDataTypeBase* {
                return new Record();
            }};
}

std::vector<RecordClass> makeCatalogue()
{
#define TELVANE_ENTRY(Class) entry<Class>(#Class)
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
        // Power-source primitives
        TELVANE_ENTRY(ValueType),
        TELVANE_ENTRY(FlagType),
        TELVANE_ENTRY(ValueLabelType),
        TELVANE_ENTRY(FlagLabelType),
        TELVANE_ENTRY(ProgramType),
        TELVANE_ENTRY(PSFunctionRequest),
        // Time and requests
        TELVANE_ENTRY(DateTime),
        TELVANE_ENTRY(RequestType),
    };
#undef TELVANE_ENTRY
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
