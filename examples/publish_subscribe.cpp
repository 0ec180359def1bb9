// Runs a server, publishes a sample of a weld and receives it again.
#include <Telvane/Telvane.h>

#include <cstdio>
#include <future>

int main(int argc, char** argv)
{
    Telvane::EventServer server; // usually another process: telvane serve PATH
    Telvane::EventClient client;
    if (argc != 2 || server.Start(argv[1]) != 0 || client.Connect(argv[1]) != 0) {
        std::puts("usage: publish_subscribe PATH (of a new socket)");
        return 1;
    }
    std::promise<void> received;
    const auto print = [&](void*, Telvane::TelvaneDataTypeBase* record, int sequence, void*) {
        const auto& sample = static_cast<const Telvane::WeldTraceDataPoint&>(*record);
        std::printf("message %d: %.1f V, %.0f A\n", sequence, sample.volts, sample.amps);
        received.set_value();
    };
    client.Subscribe("WeldTraceDataPoint", print, Telvane::WeldTraceDataPoint(), nullptr);

    Telvane::WeldTraceDataPoint sample;
    sample.volts = 24.5;
    sample.amps = 176;
    client.Publish("WeldTraceDataPoint", sample);
    received.get_future().wait();
    client.Disconnect();
    return server.Stop();
}
