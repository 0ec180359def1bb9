#include "bench/BenchReport.h"

#include "common/support/HumanReadable.h"
#include "common/support/Json.h"

#include <algorithm>

namespace TelvaneTool
{

namespace
{

struct Quantile
{
    const char* name;
    double fraction;
};
constexpr Quantile kQuantiles[] = {{"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}, {"p99.9", 0.999}};

double perSecond(std::uint64_t count, Nanoseconds time)
{
    return time > 0 ? static_cast<double>(count) / inSeconds(time) : 0.0;
}

std::string counted(int count, const char* what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string rateOf(const BenchResult& result, std::uint64_t count)
{
    const double rate = perSecond(count, result.time);
    return std::to_string(count) + "  (" + printCount(rate) + "/s, " +
           printBytes(rate * static_cast<double>(result.settings.size)) + "/s)\n";
}

} // namespace

std::uint64_t BenchResult::lost() const
{
    const std::uint64_t expected = published * static_cast<std::uint64_t>(settings.subscribers);
    return expected - std::min(expected, received);
}

std::string printBench(const BenchResult& result)
{
    const BenchSettings& settings = result.settings;
    std::string text = counted(settings.publishers, "publisher") + ", " +
                       counted(settings.subscribers, "subscriber") + ", payloads of " +
                       std::to_string(settings.size) + " bytes, " + printSpan(result.time) + "\n";
    text += "published  " + rateOf(result, result.published);
    text += "received   " + rateOf(result, result.received);
    text += "lost       " + std::to_string(result.lost()) + "\n";
    if (result.latencies.count() != 0) {
        text += "latency    ";
        for (const Quantile& quantile : kQuantiles) {
            text += std::string(quantile.name) + " " +
                    printDuration(result.latencies.quantile(quantile.fraction)) + ", ";
        }
        text += "longest " + printDuration(result.latencies.max()) + "\n";
    }
    return text;
}

std::string printBenchJson(const BenchResult& result)
{
    const JsonTree tree(cJSON_CreateObject());
    addNumber(tree.get(), "publishers", result.settings.publishers);
    addNumber(tree.get(), "subscribers", result.settings.subscribers);
    addNumber(tree.get(), "size", result.settings.size);
    addNumber(tree.get(), "rate", result.settings.rate);
    addNumber(tree.get(), "seconds", inSeconds(result.time));
    addNumber(tree.get(), "published", result.published);
    addNumber(tree.get(), "publishedPerSecond", perSecond(result.published, result.time));
    addNumber(tree.get(), "received", result.received);
    addNumber(tree.get(), "receivedPerSecond", perSecond(result.received, result.time));
    addNumber(tree.get(), "lost", result.lost());
    cJSON* const latency = cJSON_AddObjectToObject(tree.get(), "latencyMicroseconds");
    const auto microseconds = [](Nanoseconds time) {
        return static_cast<double>(time) / static_cast<double>(kMicrosecond);
    };
    for (const Quantile& quantile : kQuantiles) {
        addNumber(latency, quantile.name, microseconds(result.latencies.quantile(quantile.fraction)));
    }
    addNumber(latency, "longest", microseconds(result.latencies.max()));
    return printJson(tree.get()) + "\n";
}

} // namespace TelvaneTool
