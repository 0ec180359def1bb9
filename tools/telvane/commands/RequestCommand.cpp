// The library's own synchronizer takes whole seconds and waits them out even when the server dies. The steps
// of a request are few: subscribe, publish an empty request, wait for the first record on the channel.

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
    std::string className;
    double timeout = 5.0;
    bool pretty = false;
};

class Answer
{
public:
    void take(const DecodedRecord& record)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (!m_arrived) {
            m_arrived = true;
            m_text = record.text();
            m_fault = record.fault();
        }
    }

    bool arrived()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_arrived;
    }

    int print(BusConnection& session, const Options& options)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (!m_fault.empty()) {
            printError("the answer on \"" + options.channel + "\" cannot be decoded: " + m_fault);
            return kWrongInput;
        }
        std::string error;
        const std::string text = options.pretty ? printJson(parseJson(m_text, error).get(), true) : m_text;
        return session.write(text + "\n") ? kSuccess : kOutputFailure;
    }

private:
    std::mutex m_lock;
    bool m_arrived = false;
    std::string m_text;
    std::string m_fault;
};

int ask(BusConnection& session, Answer& answer, const Options& options)
{
    const Nanoseconds deadline = monotonicNow() + nanoseconds(options.timeout);
    Telvane::RequestType request;
    if (!session.publish(Telvane::kRequestPrefix + options.channel, request)) {
        return kBusFailure;
    }
    const bool arrived = session.waitFor([&answer] { return answer.arrived(); }, deadline);
    if (arrived) {
        return answer.print(session, options);
    }
    if (!session.stopping()) {
        printError("no answer on \"" + options.channel + "\" in time; is anybody answering " +
                   Telvane::kRequestPrefix + options.channel + "?");
    }
    return kTimeRanOut;
}

int request(const Options& options)
{
    const RecordClass* recordClass = nullptr;
    if (!classOfChannel(options.className, options.channel, recordClass)) {
        return kWrongUsage;
    }
    Answer answer;
    BusConnection session(BusConnection::Output::Data, BusConnection::Interruption::Aborts);
    int result = session.connect(options.bus.path, options.bus.wait);
    if (result == kSuccess) {
        result = session.subscribe(options.channel, DecodedRecord(recordClass),
                                   [&](void*, TelvaneDataTypeBase* record, int, void*) {
                                       answer.take(static_cast<DecodedRecord&>(*record));
                                       session.wake();
                                   });
    }
    if (result == kSuccess && !session.stopping()) {
        result = ask(session, answer, options);
    }
    return session.finish(result);
}

} // namespace

void addRequestCommand(CommandLine& line)
{
    auto options = std::make_shared<Options>();
    Command command(line, "request", "Ask for a record and print the answer");
    addBusOptions(command, options->bus);
    command.option("CHANNEL", options->channel, "Channel of the answer; the question goes to req_CHANNEL")
        .required()
        .check(&checkChannel);
    command
        .option("--as", options->className,
                "Decode and check the answer as this class (default: the class named like the "
                "channel; without one, the answer is printed as it comes)")
        .typeName("CLASS");
    command.option("--timeout", options->timeout, "Seconds to wait for the answer")
        .positive()
        .within(0.0, kMaxSeconds)
        .typeName("SECONDS")
        .showDefault();
    command.flag("--pretty", options->pretty, "Print over several lines, indented");
    command.examples("# ask whoever answers on req_HALInfo\n"
                     "telvane request /tmp/bus HALInfo --timeout 2 --pretty\n");
    command.run([options] { return request(*options); });
}

} // namespace TelvaneTool
