// What is written straight against what the JSON library prints. The first byte picks a record class, the rest
// are the channel and the values of the record's fields, as many as there are: any bits for numbers, any bytes
// for texts, any length for vectors.

#include <Telvane/DateTime.h>
#include <Telvane/RecordCatalogue.h>

#include "FuzzSupport.h"
#include "FuzzValues.h"
#include "bus/PublicationWriter.h"
#include "helpers/MessagesByTree.h"

#include <algorithm>
#include <memory>
#include <string>

namespace Telvane
{
namespace
{

void fill(TelvaneDataTypeBase& record, const RecordTable& table, Values& values);

void fill(void* member, const RecordField& field, Values& values)
{
    switch (field.kind) {
    case FieldKind::Integer:
        *static_cast<int*>(member) = values.take<int>();
        break;
    case FieldKind::Number:
        *static_cast<double*>(member) = values.take<double>();
        break;
    case FieldKind::Flag:
        *static_cast<bool*>(member) = values.takeFlag();
        break;
    case FieldKind::Text:
        *static_cast<std::string*>(member) = values.takeText();
        break;
    case FieldKind::Record:
        fill(*static_cast<TelvaneDataTypeBase*>(member), field.nested->table(), values);
        break;
    case FieldKind::FlagArray:
        std::generate_n(static_cast<bool*>(member), field.limit, [&] { return values.takeFlag(); });
        break;
    case FieldKind::IntegerArray:
        std::generate_n(static_cast<int*>(member), field.limit, [&] { return values.take<int>(); });
        break;
    case FieldKind::RecordVector:
        field.nested->resize(member, values.take<unsigned char>() % (kRecordVectorLimit + 2));
        [[fallthrough]];
    case FieldKind::RecordArray:
        for (std::size_t i = 0; i < field.nested->size(member); ++i) {
            fill(field.nested->element(member, i), field.nested->table(), values);
        }
        break;
    case FieldKind::Value:
        break; // not in the catalogue
    }
}

void fill(TelvaneDataTypeBase& record, const RecordTable& table, Values& values)
{
    if (auto* const time = dynamic_cast<DateTime*>(&record)) {
        constexpr std::int64_t kFarthest =
            1'000'000'000'000'000; // seconds, so that milliseconds have 64 bits
        time->time.tv_sec = static_cast<time_t>(values.take<std::int64_t>() % kFarthest);
        time->time.tv_nsec = values.take<std::int32_t>() % 1'000'000'000;
    }
    for (const RecordField& field : table.fields()) {
        fill(reinterpret_cast<char*>(&record) + field.offset, field, values);
    }
    record._sequence_tag = values.take<int>();
    record._id = values.takeText();
}

} // namespace
} // namespace Telvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace Telvane;
    if (size == 0) {
        return 0;
    }
    const auto& classes = RecordCatalogue::classes();
    const RecordClass& recordClass = classes[data[0] % classes.size()];
    const std::unique_ptr<TelvaneDataTypeBase> record(recordClass.build());
    Values values(textOf(data + 1, size - 1));
    const std::string channel = values.takeText();
    fill(*record, recordClass.table(), values);

    static PublicationWriter writer; // what was written before must not show
    const char* text = nullptr;
    require(record->_recordTable() != nullptr, "a record of the catalogue is written without a tree");
    require(writer.write(channel, *record, text) == 0, "a record can be published");
    requireSame({text, static_cast<std::size_t>(writer.length())},
                Testing::publicationByTree(channel, *record).value(),
                "a publication is written as the JSON library prints it");
    return 0;
}
