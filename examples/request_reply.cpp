// One program asks what the hardware is, another answers, over a bus that this one serves itself.
#include <Telvane/Telvane.h>

#include <cstdio>

int main(int argc, char** argv)
{
    Telvane::EventServer server; // usually another process: telvane serve PATH
    if (argc != 2 || server.Start(argv[1]) != 0) {
        std::fprintf(stderr, "usage: request_reply PATH (of a new socket)\n");
        return 1;
    }
    Telvane::Bus responding(argv[1]);
    auto responder = responding.respond<Telvane::HALInfo>([] {
        Telvane::HALInfo info;
        info.serialNumber = "0042";
        info.machineType = "feeder module";
        info.hardwareRevisionNumber = 3;
        return info;
    });
    responder.waitActive(std::chrono::seconds(1));

    Telvane::Bus asking(argv[1]);
    asking.waitConnected(std::chrono::seconds(1));
    Telvane::HALInfo info;
    const std::error_code error = asking.request(info, std::chrono::seconds(2));
    if (!error) {
        std::printf("%s %s, revision %d\n", info.machineType.c_str(), info.serialNumber.c_str(),
                    info.hardwareRevisionNumber);
    } else {
        std::fprintf(stderr, "no answer: %s\n", error.message().c_str());
    }
    asking.close();
    responding.close();
    server.Stop();
    return error ? 1 : 0;
}
