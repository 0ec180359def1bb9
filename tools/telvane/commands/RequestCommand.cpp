// The library's synchronizer takes whole seconds and waits for the full time even if the server dies. So the request is
// made here: subscribe, publish an empty request, wait for the first record on the channel.

#include "commands/Commands.h"
#include "common/bus/BusConnection.h"
#include "common/bus/DecodedRecord.h"
#include "common/cli/CommandLine.h"
#include "common/cli/CommandOptions.h"
#include "common/cli/ExitCodes.h"
#include "common/cli/Messages.h"
#include "common/support/ChannelPattern.h"
#include "common/support/Json.h"

#include <Telvane/RequestType.h>

#include <memory>
#include <mutex>

namespace TelvaneTool
{

namespace
{

using Telvane::RecordClass;
using Telvane::TelvaneDataTypeBase;

struct Options
{
    BusOptions bus;
    std::string channel;
    const RecordClass* recordClass = nullptr;
    double timeout = 5.0;
    bool pretty = false;
};

class Response
{
public:
    void take(const DecodedRecord& record)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (!m_arrived) {
            m_arrived = true;
            m_text = record.text();
            m_decodeError = record.decodeError();
        }
    }

    bool arrived()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_arrived;
    }

    int print(BusConnection& bus, const Options& options)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (!m_decodeError.empty()) {
            printError("cannot decode the response on \"" + options.channel + "\": " + m_decodeError);
            return kWrongInput;
        }
        std::string error;
        const std::string text = options.pretty ? printJson(parseJson(m_text, error).get(), true) : m_text;
        return bus.write(text + "\n") ? kSuccess : kOutputFailure;
    }

private:
    std::mutex m_lock;
    bool m_arrived = false;
    std::string m_text;
    std::string m_decodeError;
};

int sendRequest(BusConnection& bus, Response& response, const Options& options)
{
    const Nanoseconds deadline = monotonicNow() + nanoseconds(options.timeout);
    Telvane::RequestType request;
    if (!bus.publish(Telvane::kRequestPrefix + options.channel, request)) {
        return kBusFailure;
    }
    const bool arrived = bus.waitFor([&response] { return response.arrived(); }, deadline);
    if (arrived) {
        return response.print(bus, options);
    }
    if (!bus.stopping()) {
        printError("no response on \"" + options.channel + "\" in time; check that a client responds to " +
                   Telvane::kRequestPrefix + options.channel);
    }
    return kTimedOut;
}

int request(const Options& options)
{
    Response response;
    BusConnection bus(BusConnection::Output::Data, BusConnection::Interruption::Aborts);
    int result = bus.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = bus.subscribe(options.channel,
                               DecodedRecord(classOfChannel(options.recordClass, options.channel)),
                               [&](void*, TelvaneDataTypeBase* record, int, void*) {
                                   response.take(static_cast<DecodedRecord&>(*record));
                                   bus.wake();
                               });
    }
    if (result == kSuccess && !bus.stopping()) {
        result = sendRequest(bus, response, options);
    }
    return bus.finish(result);
}

} // namespace

void addRequestCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "request", "Request a record and print the response");
    addBusOptions(command, options->bus);
    command.option("CHANNEL", options->channel, "Channel of the response; the request goes to req_CHANNEL")
        .required()
        .check(&checkChannel);
    addClass(command, "--as", options->recordClass,
             "Decode the response as this class (default: the class with the channel's name; if there is "
             "none, the response is printed as received)");
    command.option("--timeout", options->timeout, "Wait up to SECONDS for the response")
        .positive()
        .within(0.0, kMaxSeconds)
        .typeName("SECONDS")
        .showDefault();
    command.flag("--pretty", options->pretty, "Print indented JSON on several lines");
    command.examples("# request the record that a client sends in response to req_HALInfo\n"
                     "telvane request /tmp/bus HALInfo --timeout 2 --pretty\n");
    command.run([options] { return request(*options); });
}

} // namespace TelvaneTool
