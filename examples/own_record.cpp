// Sends a record that is not in the catalogue over a bus.
#include <Telvane/Telvane.h>

#include <cstdio>

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
    if (argc != 2 || server.Start(argv[1]) != 0) {
        std::fprintf(stderr, "usage: own_record PATH (of a new socket)\n");
        return 1;
    }
    Telvane::Bus bus(argv[1]);
    auto states = bus.queue<ExtractionStatus>();
    states.waitActive(std::chrono::seconds(1));

    ExtractionStatus status;
    status.flow = 1200;
    bus.publish(status);
    if (const auto received = states.next(std::chrono::seconds(1))) {
        std::printf("%.0f m3/h, the filter is %s\n", received->flow,
                    received->filterIsFull ? "full" : "clean");
    }
    bus.close();
    return server.Stop();
}
