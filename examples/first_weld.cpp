// Prints a line at the end of each weld, until Ctrl-C.
#include <Telvane/Telvane.h>

#include <cstdio>
#include <unistd.h>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: first_weld PATH (of a bus)\n");
        return 1;
    }
    Telvane::Bus bus(argv[1]);
    auto welds = bus.subscribe<Telvane::WeldTriggerEnd>([](const Telvane::WeldTriggerEnd& weld) {
        std::printf("weld %d: %.1f s, %.1f V\n", weld.tag, weld.metrics.ArcDuration.Value,
                    weld.metrics.AverageVoltage.Value);
        std::fflush(stdout);
    });
    for (;;) {
        pause();
    }
}
