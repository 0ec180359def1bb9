// Stress-tests a bus of many processes and reports measurements. Fails if a check fails.
//
//   soak [--minutes N] [--kills N] [--seed N] [--short] [kill] [stop] [load] [neighbours]
//
// Runs all scenarios unless some are named. --short takes one minute, for each change.

#include "ProcessPool.h"
#include "Scenarios.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <random>
#include <string_view>
#include <sys/resource.h>
#include <vector>

namespace
{

using namespace Soak;

struct Scenario
{
    std::string_view name;
    void (*run)(const Plan& plan);
};

constexpr Scenario kScenarios[] = {
    {"kill", &killProcesses},
    {"stop", &pauseSubscriber},
    {"load", &loadServer},
    {"neighbours", &compareNeighbours},
};

Plan shortened(Plan plan)
{
    plan.kills = 12;
    plan.clients = 200;
    plan.sharedSubscribers = 50;
    plan.visitors = 10;
    plan.load = std::chrono::seconds(5);
    plan.published = 2000;
    plan.measure = std::chrono::milliseconds(300);
    plan.names = 2000;
#ifdef TELVANE_SOAK_SANITIZED
    plan.kills = 8;
    plan.clients = 100;
    plan.sharedSubscribers = 25;
    plan.visitors = 5;
    plan.load = std::chrono::seconds(3);
    plan.published = 1000;
    plan.measure = std::chrono::milliseconds(150);
    plan.names = 500;
#endif
    return plan;
}

/// A server with a thousand clients needs more descriptors than a process has by default.
void raiseDescriptorLimit()
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int run(const std::vector<std::string_view>& words)
{
    Plan plan;
    plan.seed = std::random_device()();
    std::vector<std::string_view> names;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto number = [&] {
            if (++i == words.size()) {
                throw Failure(std::string(words[i - 1]) + " needs a number");
            }
            return std::stoul(std::string(words[i]));
        };
        if (words[i] == "--short") {
            plan = shortened(plan);
        } else if (words[i] == "--minutes") {
            plan.load = std::chrono::minutes(number());
        } else if (words[i] == "--kills") {
            plan.kills = static_cast<int>(number());
        } else if (words[i] == "--seed") {
            plan.seed = static_cast<std::uint32_t>(number());
        } else {
            names.push_back(words[i]);
        }
    }
    bool any = false;
    for (const Scenario& scenario : kScenarios) {
        if (names.empty() || std::find(names.begin(), names.end(), scenario.name) != names.end()) {
            scenario.run(plan);
            any = true;
        }
    }
    if (!any) {
        throw Failure("unknown scenario; use kill, stop, load or neighbours");
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        int result = 0;
        if (runRole(argc, argv, result)) {
            return result;
        }
        raiseDescriptorLimit();
        return run({argv + 1, argv + argc});
    } catch (const std::exception& failure) {
        std::cerr << "soak: " << failure.what() << std::endl;
        return 1;
    }
}
