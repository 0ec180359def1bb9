// Sends a record that is not in the catalogue over a bus.
#include <Telvane/Telvane.h>

#include <cstdio>
#include <future>

/// Status of the fume extraction.
class ExtractionStatus : public Telvane::TelvaneDataTypeBase
{
public:
    double flow = 0.0;         ///< volume flow, m3/h
    bool filterIsFull = false; ///< replace the filter

    TELVANE_RECORD(ExtractionStatus, flow, filterIsFull)
};
TELVANE_DEFINE_RECORD(ExtractionStatus)

int main(int argc, char** argv)
{
    Telvane::EventServer server;
    Telvane::EventClient client;
    if (argc != 2 || server.Start(argv[1]) != 0 || client.Connect(argv[1]) != 0) {
        std::fprintf(stderr, "usage: own_record PATH (of a new socket)\n");
        return 1;
    }
    std::promise<void> received;
    const auto print = [&](void*, Telvane::TelvaneDataTypeBase* record, int, void*) {
        const auto& status = static_cast<const ExtractionStatus&>(*record);
        std::printf("%.0f m3/h, the filter is %s\n", status.flow, status.filterIsFull ? "full" : "clean");
        received.set_value();
    };
    client.Subscribe("ExtractionStatus", print, ExtractionStatus(), nullptr);

    ExtractionStatus status;
    status.flow = 1200;
    client.Publish("ExtractionStatus", status);
    received.get_future().wait();
    client.Disconnect();
    return server.Stop();
}
