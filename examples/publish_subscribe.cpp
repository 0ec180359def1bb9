// Runs a server, publishes a sample of a weld and receives it again.
#include <Telvane/Telvane.h>

#include <cstdio>

int main(int argc, char** argv)
{
    Telvane::EventServer server; // usually another process: telvane serve PATH
    if (argc != 2 || server.Start(argv[1]) != 0) {
        std::puts("usage: publish_subscribe PATH (of a new socket)");
        return 1;
    }
    Telvane::Bus bus(argv[1]);
    auto samples = bus.queue<Telvane::WeldTraceDataPoint>();
    samples.waitActive(std::chrono::seconds(1));

    Telvane::WeldTraceDataPoint sample;
    sample.volts = 24.5;
    sample.amps = 176;
    bus.publish(sample);
    if (const auto received = samples.next(std::chrono::seconds(1))) {
        std::printf("%.1f V, %.0f A\n", received->volts, received->amps);
    }
    bus.close();
    return server.Stop();
}
