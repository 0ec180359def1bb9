// What reaches the bridge to MQTT from outside: topics and payloads from the broker, rules and addresses from its
// configuration. The first byte selects which, the rest is the text.
//
// A topic that is read as a channel's must be the one that would be written for it, an accepted payload must be a record
// that leaves and comes in again, and a refused rule must change nothing. A payload from the bus must leave as the same text
// with and without a tree.

#include "FuzzSupport.h"

#include "telvane-mqtt/broker/Announcements.h"
#include "telvane-mqtt/channels/Payload.h"
#include "telvane-mqtt/channels/PayloadDecoder.h"
#include "telvane-mqtt/channels/Topics.h"
#include "telvane-mqtt/settings/Settings.h"

using Telvane::RecordCatalogue;
using Telvane::RecordClass;
using Telvane::require;
using Telvane::requireSame;

namespace TelvaneTool::Mqtt
{
namespace
{

void checkTopic(const std::string& text)
{
    const Topics topics("plant", "m1");
    std::string channel;
    const TopicKind kind = topics.parse(text, channel);
    if (kind == TopicKind::Write || kind == TopicKind::Request) {
        requireSame(text, kind == TopicKind::Write ? topics.write(channel) : topics.request(channel),
                    "a topic is read as the channel that it is written for");
        require(channel.find_first_of("/+#") == std::string::npos, "a channel is one level");
    }
    if (topics.mayAnswerOn(text)) {
        require(text.find_first_of("+#") == std::string::npos, "no answer goes to a pattern");
        require(kind == TopicKind::None, "no answer goes to a topic that the bridge reads");
    }
}

void checkNames(const std::string& text)
{
    const std::size_t bar = text.find('|');
    const std::string prefix = text.substr(0, bar);
    const std::string module = bar == std::string::npos ? "m1" : text.substr(bar + 1);
    if (!Topics::check(prefix, module).empty()) {
        return;
    }
    const Topics topics(prefix, module);
    std::string channel;
    require(topics.parse(topics.write("LogData"), channel) == TopicKind::Write && channel == "LogData",
            "topics with accepted names can be read");
    require(topics.state().find_first_of("+#") == std::string::npos, "accepted names have no wildcards");
}

/// What leaves for a payload on the bus is the same with and without a tree.
void checkDecoder(const RecordClass* recordClass, const std::string& payload)
{
    const PayloadDecoder decoder(recordClass);
    std::string error;
    std::string json;
    const JsonTree tree = parseJson(payload, error);
    const bool isPrinted = decoder.decodePrinted(payload, json);
    if (tree == nullptr) {
        require(!isPrinted, "only JSON leaves without a tree");
        return;
    }
    const std::string printed = json;
    DecodedRecord expected(recordClass);
    require(expected.Unpackage(tree.get()) == 0, "everything that arrives is decoded");
    requireSame(decoder.decode(payload, json), expected.decodeError(), "a text is refused like its tree");
    requireSame(json, expected.text(), "a text leaves like its tree");
    require(!isPrinted || printed == json, "a text leaves in one way");
}

/// \param text the number of a class, then the payload
void checkPayload(const std::string& text)
{
    if (text.empty()) {
        return;
    }
    const auto& classes = RecordCatalogue::classes();
    const RecordClass& recordClass =
        *(classes.begin() + static_cast<unsigned char>(text[0]) % static_cast<int>(classes.size()));
    checkDecoder(&recordClass, text.substr(1));
    checkDecoder(nullptr, text.substr(1));
    std::string error;
    const auto record = readRecord(text.substr(1), recordClass, error);
    require((record == nullptr) == !error.empty(), "a refusal has a reason, and only a refusal");
    if (record == nullptr) {
        return;
    }
    cJSON* packaged = nullptr;
    require(record->Package(&packaged) == 0, "an accepted record can be sent");
    OutgoingMessage message;
    message.className = recordClass.name;
    message.body = "\"record\":" + printJson(JsonTree(packaged).get());
    message.number = 1;
    // The largest numbers are printed with fewer digits, and are infinite when they are read.
    require(message.body.find("e+308") != std::string::npos ||
                readRecord(payloadOf(message, {1, ""}), recordClass, error) != nullptr,
            "what leaves may come in again");
}

void checkState(const std::string& text)
{
    const Session session = {17, "1970-01-01T00:00:00.017Z"};
    isForeignState(text, session);
    RepeatRequest request;
    if (readRepeatRequest(text, request)) {
        require(request.session >= 1 && request.from >= 1 && request.to >= 1, "numbers begin with 1");
    } else {
        require(request.session == 0 && request.from == 0 && request.to == 0, "a refusal changes nothing");
    }
}

void checkRules(const std::string& text)
{
    ChannelRules rules;
    if (rules.addOut(text).empty()) {
        require(!rules.out().empty(), "an accepted rule has channels");
        for (const auto& [channel, rule] : rules.out()) {
            require(!describeRule(rule).empty(), "an accepted rule can be described");
            require(rule.mode == Mode::EachRecord || rule.recordClass != nullptr, "a batch has a class");
            require((rule.interval > 0) == (rule.mode == Mode::Batch || rule.mode == Mode::Summary),
                    "batches and summaries have an interval");
        }
    } else {
        require(rules.out().empty(), "a refused rule changes nothing");
    }
    if (rules.addIn(text).empty()) {
        require(rules.in().size() == 1 && rules.in().begin()->second.recordClass != nullptr,
                "what comes in is one channel with a class");
    }
    require(rules.addRequest(text).empty() == (rules.requests().size() == 1),
            "a request is one channel or refused");
}

void checkAddress(const std::string& text)
{
    Settings settings;
    settings.bus = "bus";
    settings.module = "m1";
    settings.out = {"LogData"};
    settings.broker = text;
    BridgeSettings result;
    if (checkSettings(settings, result).empty()) {
        require(!result.broker.host.empty() && result.broker.port > 0 && result.broker.port < 65536,
                "an accepted address has a host and a port");
        require(text.find('@') == std::string::npos, "an address has no secret");
        require(!describeSettings(result).empty(), "accepted settings can be described");
    }
}

} // namespace
} // namespace TelvaneTool::Mqtt

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace TelvaneTool::Mqtt;
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 6) {
    case 0:
        checkTopic(text);
        break;
    case 1:
        checkNames(text);
        break;
    case 2:
        checkPayload(text);
        break;
    case 3:
        checkState(text);
        break;
    case 4:
        checkRules(text);
        break;
    default:
        checkAddress(text);
        break;
    }
    return 0;
}
