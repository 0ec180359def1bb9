// Prints a line at the end of each weld, until Ctrl-C.
#include <Telvane/Telvane.h>

#include <cstdio>
#include <unistd.h>

int main(int argc, char** argv)
{
    Telvane::EventClient client;
    if (argc != 2 || client.Connect(argv[1]) != 0) {
        std::fprintf(stderr, "usage: first_weld PATH (of a running server)\n");
        return 1;
    }
    const auto print = [](void*, Telvane::TelvaneDataTypeBase* record, int, void*) {
        const auto& weld = static_cast<const Telvane::WeldTriggerEnd&>(*record);
        std::printf("weld %d: %.1f s, %.1f V\n", weld.tag, weld.metrics.ArcDuration.Value,
                    weld.metrics.AverageVoltage.Value);
        std::fflush(stdout);
    };
    const int result = client.Subscribe("WeldTriggerEnd", print, Telvane::WeldTriggerEnd(), nullptr);
    if (result != 0) {
        std::fprintf(stderr, "cannot subscribe to WeldTriggerEnd (%d)\n", result);
        return 1;
    }
    for (;;) {
        pause();
    }
}
