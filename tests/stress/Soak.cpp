// Keeps a bus of many processes under strain for a while and reports what it cost. Fails when anything broke.
//
//   soak [--minutes N] [--kills N] [--seed N] [--short] [kill] [stop] [load] [neighbours]
//
// Without a name all scenarios run. --short is the form for every change: a minute instead of many.

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
    {"stop", &stopASubscriber},
    {"load", &crowdTheServer},
    {"neighbours", &endureNeighbours},
};

Plan shortened(Plan plan)
{
    plan.kills = 12;
    plan.clients = 200;
    plan.sharers = 50;
    plan.joiners = 10;
    plan.load = std::chrono::seconds(5);
    plan.published = 2000;
    plan.look = std::chrono::milliseconds(300);
    plan.names = 2000;
#ifdef TELVANE_SOAK_SANITIZED
    plan.kills = 8;
    plan.clients = 100;
    plan.sharers = 25;
    plan.joiners = 5;
    plan.load = std::chrono::seconds(3);
    plan.published = 1000;
    plan.look = std::chrono::milliseconds(150);
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
        throw Failure("there is no such scenario; there are kill, stop, load and neighbours");
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
