#include "serve/PolicyGuard.h"

#include "common/cli/Messages.h"
#include "common/support/HumanReadable.h"
#include "serve/AccessPolicy.h"

#include <Telvane/EventServer.h>

#include <cstring>
#include <memory>
#include <unistd.h>

namespace TelvaneTool
{

namespace
{

using Telvane::EventServer;
using Telvane::EventServerAccess;
using Telvane::EventServerRefusal;

EventServerRefusal refusalOf(const EventServerAccess& access)
{
    EventServerRefusal refusal;
    refusal.reason =
        access.action == EventServerAccess::Action::Publish   ? EventServerRefusal::Reason::MayNotPublish
        : access.action == EventServerAccess::Action::Request ? EventServerRefusal::Reason::MayNotRequest
                                                              : EventServerRefusal::Reason::MayNotSubscribe;
    refusal.client = access.client;
    refusal.process = access.process;
    refusal.user = access.user;
    refusal.group = access.group;
    refusal.channel = access.channel;
    return refusal;
}

bool isOfPolicy(EventServerRefusal::Reason reason)
{
    return reason == EventServerRefusal::Reason::MayNotPublish ||
           reason == EventServerRefusal::Reason::MayNotRequest ||
           reason == EventServerRefusal::Reason::MayNotSubscribe;
}

} // namespace

PolicyGuard::PolicyGuard(EventServer& server, std::string path, bool audit)
    : m_server(server), m_path(std::move(path)), m_audit(audit)
{
    if (isActive()) {
        m_server.install_OnRefusal([this](EventServer&, const EventServerRefusal& refusal) {
            if (isOfPolicy(refusal.reason)) {
                report(refusal);
            } else {
                printError("refused " + Telvane::describe(refusal));
            }
        });
    }
}

bool PolicyGuard::load()
{
    std::string error;
    auto policy = AccessPolicy::read(m_path, error);
    if (!policy) {
        printError(error);
        return false;
    }
    const std::size_t rules = policy->size();
    const auto shared = std::make_shared<const AccessPolicy>(std::move(*policy));
    const int result = m_server.SetPolicy(
        [this, shared](const EventServerAccess& access) { return decide(*shared, access); });
    if (result != 0) {
        printError("cannot apply " + m_path + ": " + std::strerror(-result));
        return false;
    }
    printStatus("policy " + m_path + ": " + printNumber(rules, "rule") +
                (m_audit ? ", refusals are only logged" : ""));
    return true;
}

bool PolicyGuard::decide(const AccessPolicy& policy, const EventServerAccess& access)
{
    // The server's own client replies to requests for its status.
    if (access.process == getpid() || policy.allows(access)) {
        return true;
    }
    if (m_audit) {
        report(refusalOf(access));
    }
    return m_audit;
}

void PolicyGuard::report(const EventServerRefusal& refusal)
{
    const std::string line = m_report.add(refusal, monotonicNow());
    if (!line.empty()) {
        print({line});
    }
}

void PolicyGuard::update(Nanoseconds now)
{
    print(m_report.update(now));
}

void PolicyGuard::finish()
{
    print(m_report.finish());
}

void PolicyGuard::print(const std::vector<std::string>& lines) const
{
    for (const std::string& line : lines) {
        printError((m_audit ? "would refuse " : "refused ") + line);
    }
}

} // namespace TelvaneTool
