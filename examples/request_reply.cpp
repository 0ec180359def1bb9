// Runs a server; one client requests the hardware information, another one replies.
#include <Telvane/Telvane.h>

#include <cstdio>

int main(int argc, char** argv)
{
    Telvane::EventServer server; // usually another process: telvane serve PATH
    Telvane::EventClient responder;
    Telvane::EventClient requester;
    if (argc != 2 || server.Start(argv[1]) != 0 || responder.Connect(argv[1]) != 0 ||
        requester.Connect(argv[1]) != 0) {
        std::fprintf(stderr, "usage: request_reply PATH (of a new socket)\n");
        return 1;
    }

    // Requests for a channel arrive on "req_" plus its name. A callback may publish.
    const auto answer = [&](void*, Telvane::TelvaneDataTypeBase*, int, void*) {
        Telvane::HALInfo info;
        info.serialNumber = "0042";
        info.machineType = "feeder module";
        info.hardwareRevisionNumber = 3;
        responder.Publish("HALInfo", info);
    };
    responder.Subscribe("req_HALInfo", answer, Telvane::RequestType(), nullptr);

    // Wait up to two seconds. If your program must not wait, use Subscribe() instead.
    Telvane::EventClientSynchronizer synchronizer;
    Telvane::HALInfo info;
    const int result = synchronizer.Request(requester, "HALInfo", info, 2);
    if (result == 0) {
        std::printf("%s %s, revision %d\n", info.machineType.c_str(), info.serialNumber.c_str(),
                    info.hardwareRevisionNumber);
    } else {
        std::fprintf(stderr, "no reply on HALInfo (%d)\n", result);
    }

    requester.Disconnect();
    responder.Disconnect();
    server.Stop();
    return result == 0 ? 0 : 1;
}
