// What one message costs, step by step: packaging, printing, parsing, unpackaging and copying of a small, a
// medium and the widest record, each beside the same done by hand with plain calls of the JSON library, and
// the server's part of a message without its sockets.
//
// The figures are for comparing with each other in one run; absolute times move with the machine.

#include "base/RecordEngine.h"
#include "bus/PublicationWriter.h"
#include "support/JsonScanner.h"
#include "support/JsonTree.h"
#include "support/JsonWriter.h"
#include "transport/Envelope.h"

#include <Telvane/Telvane.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace Telvane
{
namespace
{

WeldTraceData makeSmall()
{
    WeldTraceData record;
    record.sequence = 4711;
    record.timestamp.time = {1'700'000'000, 123'000'000};
    record.data.amps = 176.4;
    record.data.volts = 25.1;
    record.data.wfs = 112.5;
    record.data.gas = 9.03;
    record.data.power = 4427.64;
    record.data.motor = 3.7;
    record.messageSerial = 815;
    return record;
}

PSMemorySlot makeMedium()
{
    PSMemorySlot record;
    record.mPrograms.resize(26);
    int number = 0;
    for (ProgramType& program : record.mPrograms) {
        program.PROC = number % 24;
        program.WT = number % 16;
        program.WS = number % 29;
        program.GT = number % 21;
        program._id = "5e1f8f9c-6f1d-4c3a-9b1e-2f6d6f0a7b1c";
        program._sequence_tag = ++number;
    }
    return record;
}

MemorySlotFleetManagementDownloadSettings makeWidest()
{
    const JsonTree values(cJSON_CreateObject());
    int value = 0;
    for (const RecordField& field : MemorySlotFleetManagementDownloadSettings::recordTable().fields()) {
        cJSON_AddNumberToObject(values.get(), field.key, value += 17);
    }
    MemorySlotFleetManagementDownloadSettings record;
    record.Unpackage(values.get());
    return record;
}

template <class Record>
Record make();
template <>
WeldTraceData make()
{
    return makeSmall();
}
template <>
PSMemorySlot make()
{
    return makeMedium();
}
template <>
MemorySlotFleetManagementDownloadSettings make()
{
    return makeWidest();
}

/// The records packaged as an application without the library would, call by call.
cJSON* packageByHand(const WeldTraceData& record)
{
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddNumberToObject(object, "sequence", record.sequence);
    cJSON_AddStringToObject(object, "timestamp", "/Date(1700000000123)/");
    cJSON* const data = cJSON_AddObjectToObject(object, "data");
    cJSON_AddNumberToObject(data, "amps", record.data.amps);
    cJSON_AddNumberToObject(data, "volts", record.data.volts);
    cJSON_AddNumberToObject(data, "wfs", record.data.wfs);
    cJSON_AddNumberToObject(data, "gas", record.data.gas);
    cJSON_AddNumberToObject(data, "power", record.data.power);
    cJSON_AddNumberToObject(data, "motor", record.data.motor);
    cJSON_AddNumberToObject(object, "messageSerial", record.messageSerial);
    return object;
}

void unpackageByHand(const cJSON* object, WeldTraceData& record)
{
    record.sequence = cJSON_GetObjectItem(object, "sequence")->valueint;
    DateTime::FromString(cJSON_GetObjectItem(object, "timestamp")->valuestring, record.timestamp);
    const cJSON* const data = cJSON_GetObjectItem(object, "data");
    record.data.amps = cJSON_GetObjectItem(data, "amps")->valuedouble;
    record.data.volts = cJSON_GetObjectItem(data, "volts")->valuedouble;
    record.data.wfs = cJSON_GetObjectItem(data, "wfs")->valuedouble;
    record.data.gas = cJSON_GetObjectItem(data, "gas")->valuedouble;
    record.data.power = cJSON_GetObjectItem(data, "power")->valuedouble;
    record.data.motor = cJSON_GetObjectItem(data, "motor")->valuedouble;
    record.messageSerial = cJSON_GetObjectItem(object, "messageSerial")->valueint;
    if (const cJSON* const id = cJSON_GetObjectItem(object, "_id")) {
        record._id = id->valuestring;
    }
    if (const cJSON* const tag = cJSON_GetObjectItem(object, "_sequence_tag")) {
        record._sequence_tag = tag->valueint;
    }
}

void PackageAndPrintByHand(benchmark::State& state)
{
    const WeldTraceData record = makeSmall();
    for (auto _ : state) {
        const JsonTree object(packageByHand(record));
        const JsonText text(cJSON_Print(object.get()));
        benchmark::DoNotOptimize(text.get());
    }
}
BENCHMARK(PackageAndPrintByHand);

/// What Publish() does but for the socket.
template <class Record>
void WritePublication(benchmark::State& state)
{
    Record record = make<Record>();
    PublicationWriter writer;
    const std::string channel = "WeldTraceData";
    for (auto _ : state) {
        const char* text = nullptr;
        benchmark::DoNotOptimize(writer.write(channel, record, text));
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(WritePublication<WeldTraceData>);
BENCHMARK(WritePublication<PSMemorySlot>);
BENCHMARK(WritePublication<MemorySlotFleetManagementDownloadSettings>);

template <class Record>
void Package(benchmark::State& state)
{
    Record record = make<Record>();
    for (auto _ : state) {
        cJSON* packaged = nullptr;
        record.Package(&packaged);
        const JsonTree object(packaged);
        benchmark::DoNotOptimize(object.get());
    }
}
BENCHMARK(Package<WeldTraceData>);
BENCHMARK(Package<PSMemorySlot>);
BENCHMARK(Package<MemorySlotFleetManagementDownloadSettings>);

void ParseAndUnpackageByHand(benchmark::State& state)
{
    const std::string text = makeSmall().GetString();
    for (auto _ : state) {
        const JsonTree object(cJSON_Parse(text.c_str()));
        WeldTraceData record;
        unpackageByHand(object.get(), record);
        benchmark::DoNotOptimize(record.data.amps);
    }
}
BENCHMARK(ParseAndUnpackageByHand);

template <class Record>
void ParseAndUnpackage(benchmark::State& state)
{
    const std::string text = make<Record>().GetString();
    const Record prototype;
    for (auto _ : state) {
        const JsonTree object(cJSON_Parse(text.c_str()));
        TelvaneDataTypeBase* unpackaged = nullptr;
        const_cast<Record&>(prototype).Unpackage(object.get(), &unpackaged);
        const std::unique_ptr<TelvaneDataTypeBase> record(unpackaged);
        benchmark::DoNotOptimize(record.get());
    }
}
BENCHMARK(ParseAndUnpackage<WeldTraceData>);
BENCHMARK(ParseAndUnpackage<PSMemorySlot>);
BENCHMARK(ParseAndUnpackage<MemorySlotFleetManagementDownloadSettings>);

template <class Record>
void Parse(benchmark::State& state)
{
    const std::string text = make<Record>().GetString();
    for (auto _ : state) {
        const JsonTree object(cJSON_Parse(text.c_str()));
        benchmark::DoNotOptimize(object.get());
    }
}
BENCHMARK(Parse<WeldTraceData>);
BENCHMARK(Parse<PSMemorySlot>);
BENCHMARK(Parse<MemorySlotFleetManagementDownloadSettings>);

template <class Record>
void Unpackage(benchmark::State& state)
{
    const std::string text = make<Record>().GetString();
    const JsonTree object(cJSON_Parse(text.c_str()));
    Record record;
    for (auto _ : state) {
        benchmark::DoNotOptimize(record.Unpackage(object.get()));
    }
}
BENCHMARK(Unpackage<WeldTraceData>);
BENCHMARK(Unpackage<PSMemorySlot>);
BENCHMARK(Unpackage<MemorySlotFleetManagementDownloadSettings>);

void UnpackageWidestBySearchPerKey(benchmark::State& state)
{
    using Record = MemorySlotFleetManagementDownloadSettings;
    const std::string text = makeWidest().GetString();
    const JsonTree object(cJSON_Parse(text.c_str()));
    std::array<int, 58> values = {};
    for (auto _ : state) {
        auto value = values.begin();
        for (const RecordField& field : Record::recordTable().fields()) {
            *value++ = cJSON_GetObjectItem(object.get(), field.key)->valueint;
        }
        benchmark::DoNotOptimize(values);
    }
}
BENCHMARK(UnpackageWidestBySearchPerKey);

template <class Record>
void Copy(benchmark::State& state)
{
    Record source = make<Record>();
    Record target;
    for (auto _ : state) {
        benchmark::DoNotOptimize(target.copy(&source));
    }
}
BENCHMARK(Copy<WeldTraceData>);
BENCHMARK(Copy<PSMemorySlot>);
BENCHMARK(Copy<MemorySlotFleetManagementDownloadSettings>);

template <class Record>
std::string publicationOf()
{
    Record record = make<Record>();
    record._id = "5e1f8f9c-6f1d-4c3a-9b1e-2f6d6f0a7b1c";
    PublicationWriter writer;
    const char* text = nullptr;
    writer.write("WeldTraceData", record, text);
    return text;
}

/// All of a relay but the sockets and locks, for a publication in printed form.
template <class Record>
void ServerRelay(benchmark::State& state)
{
    const std::string text = std::string(PrintedPublication::kMaxAdded, ' ') + publicationOf<Record>();
    for (auto _ : state) {
        std::string packet = text;
        PrintedPublication publication;
        publication.read(&packet[PrintedPublication::kMaxAdded]);
        benchmark::DoNotOptimize(publication.makeRelay(4711));
    }
}
BENCHMARK(ServerRelay<WeldTraceData>);
BENCHMARK(ServerRelay<PSMemorySlot>);

/// The same for any other publication.
template <class Record>
void ServerRelayByTree(benchmark::State& state)
{
    const std::string text = publicationOf<Record>();
    JsonWriter relay(65536);
    for (auto _ : state) {
        const JsonTree message(cJSON_Parse(text.c_str()));
        writeRelay(relay, headerOf(message.get()), 4711, payloadOf(message.get()));
        benchmark::DoNotOptimize(relay.finish());
    }
}
BENCHMARK(ServerRelayByTree<WeldTraceData>);
BENCHMARK(ServerRelayByTree<PSMemorySlot>);

/// What a subscriber does with a relay, but for the socket and the callback.
template <class Record>
void ReadRelay(benchmark::State& state)
{
    std::string text = publicationOf<Record>();
    PrintedPublication publication;
    text.insert(0, PrintedPublication::kMaxAdded, ' ');
    publication.read(&text[PrintedPublication::kMaxAdded]);
    const std::string relay(publication.makeRelay(4711));
    const Record prototype;
    for (auto _ : state) {
        JsonScanner scanner(relay.c_str());
        std::string_view channel;
        int sequence = 0;
        const std::unique_ptr<TelvaneDataTypeBase> record(prototype.BuildNewDataType());
        if (!beginRelay(scanner, channel, sequence) || !RecordEngine::scan(*record, scanner, 1) ||
            !endRelay(scanner)) {
            state.SkipWithError("a relay is not read straight");
        }
        benchmark::DoNotOptimize(record.get());
    }
}
BENCHMARK(ReadRelay<WeldTraceData>);
BENCHMARK(ReadRelay<PSMemorySlot>);
BENCHMARK(ReadRelay<MemorySlotFleetManagementDownloadSettings>);

void ServerRelayByHand(benchmark::State& state)
{
    WeldTraceData record = makeSmall();
    record._id = "5e1f8f9c-6f1d-4c3a-9b1e-2f6d6f0a7b1c";
    const std::string text = "{\"header\":\"WeldTraceData\",\"payload\":" + record.GetString() + "}";
    for (auto _ : state) {
        const JsonTree message(cJSON_Parse(text.c_str()));
        cJSON* const payload = cJSON_DetachItemFromObject(message.get(), "payload");
        const JsonTree relay(cJSON_CreateObject());
        cJSON_AddStringToObject(relay.get(), "header",
                                cJSON_GetObjectItem(message.get(), "header")->valuestring);
        cJSON_AddNumberToObject(relay.get(), "sequence", 4711);
        cJSON_AddItemToObject(relay.get(), "payload", payload);
        const JsonText printed(cJSON_Print(relay.get()));
        benchmark::DoNotOptimize(printed.get());
    }
}
BENCHMARK(ServerRelayByHand);

} // namespace
} // namespace Telvane
