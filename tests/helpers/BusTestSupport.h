#pragma once

// The other end of the bus without our own client or server: bare SEQPACKET sockets and literal texts. What
// must happen is waited for; when it does not, an exception ends the test with a sentence that says so.

#include <Telvane/EventClient.h>
#include <Telvane/EventServer.h>
#include <Telvane/RequestType.h>
#include <Telvane/WeldRecords.h>

#include "helpers/PatientExchanges.h"
#include "helpers/ProcessTestSupport.h"
#include "helpers/ThreadTestSupport.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <vector>

namespace Telvane::Testing
{

/// The most bytes of one message.
constexpr std::size_t kMessageLimit = 16384;

inline sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
    return address;
}

/// One end of a connection.
class RawPeer
{
public:
    explicit RawPeer(FileDescriptor socket) : m_socket(std::move(socket))
    {
        timeval patience = {};
        patience.tv_sec = kTimeout.count();
        ::setsockopt(m_socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }

    static RawPeer connectedTo(const std::string& path)
    {
        FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        const sockaddr_un address = addressOf(path);
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throwSystemError("connecting a raw peer");
        }
        return RawPeer(std::move(socket));
    }

    int descriptor() const { return m_socket.get(); }

    void send(const std::string& packet) const
    {
        const auto sent = ::send(m_socket.get(), packet.data(), packet.size(), MSG_EOR | MSG_NOSIGNAL);
        if (sent != static_cast<ssize_t>(packet.size())) {
            throwSystemError("sending a packet");
        }
    }

    /// \return the next packet
    std::string receive() const
    {
        if (!isReadable(kTimeout)) {
            throw std::runtime_error("the packet that the test waited for did not come");
        }
        std::string packet(4 * kMessageLimit, '\0');
        const auto length = ::recv(m_socket.get(), packet.data(), packet.size(), 0);
        if (length <= 0) {
            throw std::runtime_error("the connection ended instead of bringing a packet");
        }
        packet.resize(static_cast<std::size_t>(length));
        return packet;
    }

    /// Waits for the other end to close; a packet that comes first is thrown.
    void expectEnd() const
    {
        if (!isReadable(kTimeout)) {
            throw std::runtime_error("the connection did not end");
        }
        std::string packet(kMessageLimit, '\0');
        const auto length = ::recv(m_socket.get(), packet.data(), packet.size(), 0);
        if (length > 0) {
            throw std::runtime_error("a packet came instead of the end: " +
                                     packet.substr(0, static_cast<std::size_t>(length)));
        }
    }

    /// \return whether nothing comes for a moment
    bool isSilent() const { return !isReadable(kQuietTime); }

    void shutdown(int how) const { ::shutdown(m_socket.get(), how); }
    void close() { m_socket.reset(); }

private:
    bool isReadable(std::chrono::milliseconds wait) const
    {
        pollfd entry = {m_socket.get(), POLLIN, 0};
        return ::poll(&entry, 1, static_cast<int>(wait.count())) == 1;
    }

    FileDescriptor m_socket;
};

/// A listening socket that does nothing by itself.
class RawServer
{
public:
    explicit RawServer(const std::string& path)
        : m_path(path), m_socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
    {
        const sockaddr_un address = addressOf(path);
        if (::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(m_socket.get(), 16) != 0) {
            throwSystemError("opening a raw server");
        }
    }

    const std::string& path() const { return m_path; }

    RawPeer accept() const
    {
        pollfd entry = {m_socket.get(), POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(kTimeout).count())) != 1) {
            throw std::runtime_error("nobody connected");
        }
        return RawPeer(FileDescriptor(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC)));
    }

    void close() { m_socket.reset(); }

private:
    std::string m_path;
    FileDescriptor m_socket;
};

inline std::string subscribeRequest(const std::string& channel)
{
    return R"({"header":".subscribe","payload":{"channel":")" + channel + R"("}})";
}

inline std::string unsubscribeRequest(const std::string& channel)
{
    return R"({"payload":{"channel":")" + channel + R"("},"header":".unsubscribe"})";
}

inline std::string response(const std::string& header, bool success, const std::string& channel)
{
    return R"({"header":")" + header + R"(","success":)" + (success ? "true" : "false") + R"(,"channel":")" +
           channel + R"("})";
}

inline std::string publication(const std::string& channel, const std::string& payload = "{}")
{
    return R"({"header":")" + channel + R"(","payload":)" + payload + "}";
}

/// What a server of ours sends for a publication with an object of one line: \p members as
/// `"key":` tab value.
inline std::string printedRelay(const std::string& channel, int sequence, const std::string& members)
{
    return "{\n\t\"header\":\t\"" + channel + "\",\n\t\"sequence\":\t" + std::to_string(sequence) +
           ",\n\t\"payload\":\t{\n" + (members.empty() ? "" : "\t\t" + members + "\n") + "\t}\n}";
}

/// What a server may send to a subscriber; no server of ours would print it on one line.
inline std::string relay(const std::string& channel, int sequence, const std::string& payload)
{
    return R"({"header":")" + channel + R"(","sequence":)" + std::to_string(sequence) + R"(,"payload":)" +
           payload + "}";
}

/// What a client of ours sends, to the byte.
/// @{
inline std::string printedPublication(const std::string& channel, const std::string& members = "")
{
    return "{\n\t\"header\":\t\"" + channel + "\",\n\t\"payload\":\t{\n" +
           (members.empty() ? "" : "\t\t" + members + "\n") + "\t}\n}";
}

inline std::string printedSubscribeRequest(const std::string& channel)
{
    return printedPublication(".subscribe", "\"channel\":\t\"" + channel + "\"");
}

inline std::string printedUnsubscribeRequest(const std::string& channel)
{
    return "{\n\t\"payload\":\t{\n\t\t\"channel\":\t\"" + channel +
           "\"\n\t},\n\t\"header\":\t\".unsubscribe\"\n}";
}
/// @}

/// \return the sequence number of a relay
inline int sequenceOf(const std::string& relay)
{
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(cJSON_Parse(relay.c_str()), &cJSON_Delete);
    const cJSON* const sequence = cJSON_GetObjectItem(tree.get(), "sequence");
    if (cJSON_IsNumber(sequence) == 0) {
        throw std::runtime_error("no relay: " + relay);
    }
    return sequence->valueint;
}

inline void subscribe(const RawPeer& peer, const std::string& channel)
{
    peer.send(subscribeRequest(channel));
    EXPECT_EQ(peer.receive(), response(".subscribe", true, channel));
}

inline void unsubscribe(const RawPeer& peer, const std::string& channel)
{
    peer.send(unsubscribeRequest(channel));
    EXPECT_EQ(peer.receive(), response(".unsubscribe", true, channel));
}

/// Shows that the connection works and that nothing else was under way to \p peer: the answer to a question
/// of its own is the next packet. Costs one sequence number.
inline void expectNothingElse(const RawPeer& peer)
{
    peer.send(unsubscribeRequest("nobody_ever"));
    EXPECT_EQ(peer.receive(), response(".unsubscribe", false, "nobody_ever"));
}

/// A started server in a directory of its own.
class RunningServer
{
public:
    /// \param prepare installs hooks before the start
    explicit RunningServer(const std::function<void(EventServer&)>& prepare = {})
    {
        if (prepare) {
            prepare(server);
        }
        start();
    }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;
    ~RunningServer() { server.Stop(); }

    void start()
    {
        if (const int result = server.Start(path); result != 0) {
            throw std::runtime_error("the server did not start: " + std::to_string(result));
        }
    }
    RawPeer connect() const { return RawPeer::connectedTo(path); }

    TemporaryDirectory directory;
    const std::string path = directory.path("bus");
    std::optional<PatientExchanges> patience{std::in_place};
    EventServer server;
};

/// One call of a hook.
struct HookCall
{
    void* server = nullptr;
    int client = -1;
    std::string header;
    int sequence = 0;
    bool hasPayload = false;
    std::string channel; ///< the payload's "channel"
    std::thread::id thread;
};

using HookCalls = Mailbox<HookCall>;

/// A hook whose user pointer is a HookCalls.
inline int recordHookCall(void* server, int client, const std::string& header, int sequence, cJSON* payload,
                          void* user)
{
    const cJSON* const channel = cJSON_GetObjectItem(payload, "channel");
    static_cast<HookCalls*>(user)->put({server, client, header, sequence, payload != nullptr,
                                        cJSON_IsString(channel) != 0 ? channel->valuestring : "",
                                        std::this_thread::get_id()});
    return 0;
}

/// One call of a subscription's callback.
struct Reception
{
    void* client = nullptr;
    std::string record; ///< as it prints
    int sequence = 0;
    void* user = nullptr;
    std::thread::id thread;
};

using Receptions = Mailbox<Reception>;

/// \return a callback that tells its calls to \p receptions
inline EventClient::Callback recordingTo(Receptions& receptions)
{
    return [&receptions](void* client, TelvaneDataTypeBase* record, int sequence, void* user) {
        receptions.put({client, record->GetString(), sequence, user, std::this_thread::get_id()});
    };
}

/// A record of the channel "Amps" as a relay carries it.
constexpr const char* kAmps = R"({"Unit":"A","Value":176})";

/// \return the same record as it prints
inline std::string printedAmps()
{
    UnitValuePair record;
    record.Unit = "A";
    record.Value = 176;
    return record.GetString();
}

/// A client that is connected to a raw server.
class ClientOfRawServer : public ::testing::Test
{
protected:
    ClientOfRawServer() { connect(); }

    void connect()
    {
        if (client.Connect(server.path()) != 0) {
            throw std::runtime_error("the client did not connect");
        }
        peer = server.accept();
    }

    /// Runs \p operation of the client in the background, while the test plays the server.
    template <class Operation>
    static std::future<int> begin(Operation operation)
    {
        return std::async(std::launch::async, std::move(operation));
    }

    /// Reads a request to subscribe to \p channel and grants it.
    void acceptSubscription(const std::string& channel)
    {
        EXPECT_EQ(peer.receive(), printedSubscribeRequest(channel));
        peer.send(response(".subscribe", true, channel));
    }
    void acceptUnsubscription(const std::string& channel)
    {
        EXPECT_EQ(peer.receive(), printedUnsubscribeRequest(channel));
        peer.send(response(".unsubscribe", true, channel));
    }
    void expectRequest() { EXPECT_EQ(peer.receive(), printedPublication("req_Amps")); }
    void subscribe(const std::string& channel, const EventClient::Callback& callback,
                   const TelvaneDataTypeBase& prototype, void* user = nullptr)
    {
        std::future<int> result = begin([&] { return client.Subscribe(channel, callback, prototype, user); });
        acceptSubscription(channel);
        ASSERT_EQ(result.get(), 0);
    }

    /// Shows that the client has sent nothing that the test has not read.
    void expectNothingElseSent()
    {
        RequestType marker;
        EXPECT_EQ(client.Publish("marker", marker), 0);
        EXPECT_EQ(peer.receive(), printedPublication("marker"));
    }

    TemporaryDirectory directory;
    RawServer server{directory.path("bus")};
    RawPeer peer{FileDescriptor()};
    std::optional<PatientExchanges> patience{std::in_place};
    EventClient client;
};

} // namespace Telvane::Testing
