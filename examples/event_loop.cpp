// One thread, one epoll: two queues of a bus and a timer. Prints welds, alarms and how many seconds have passed,
// until the third argument's number of seconds is over.
#include <Telvane/Telvane.h>

#include <cstdio>
#include <cstdlib>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace
{

void watch(int epoll, int descriptor)
{
    epoll_event event = {};
    event.events = EPOLLIN; // level-triggered: readable as long as something is left
    event.data.fd = descriptor;
    epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: event_loop PATH SECONDS\n");
        return 2;
    }
    Telvane::Bus bus(argv[1]);
    auto welds = bus.queue<Telvane::WeldTriggerEnd>();
    auto alarms = bus.queue<Telvane::LogData>("WeldAlarm");

    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    const itimerspec everySecond = {{1, 0}, {1, 0}};
    timerfd_settime(timer, 0, &everySecond, nullptr);

    // The descriptors stay the same when the server restarts.
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    watch(epoll, welds.fd());
    watch(epoll, alarms.fd());
    watch(epoll, timer);

    constexpr auto kNoWait = std::chrono::seconds(0);
    for (int seconds = 0; seconds < std::atoi(argv[2]);) {
        epoll_event event = {};
        if (epoll_wait(epoll, &event, 1, -1) != 1) {
            continue;
        }
        if (event.data.fd == welds.fd()) {
            if (const auto weld = welds.next(kNoWait)) {
                std::printf("weld %d: %.1f s\n", weld->tag, weld->metrics.ArcDuration.Value);
            } else if (weld.lost()) {
                std::puts("the server has gone");
            } else if (weld.connected()) {
                std::puts("connected");
            }
        } else if (event.data.fd == alarms.fd()) {
            if (const auto alarm = alarms.next(kNoWait)) {
                std::printf("alarm: %s\n", alarm->log.c_str());
            }
        } else {
            std::uint64_t expirations = 0;
            if (read(timer, &expirations, sizeof expirations) == sizeof expirations) {
                seconds += static_cast<int>(expirations);
                std::printf("%d s\n", seconds);
            }
        }
        std::fflush(stdout);
    }
    close(epoll);
    close(timer);
    return 0;
}
