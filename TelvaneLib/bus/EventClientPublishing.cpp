// Publishing. A send is retried until at least a part is sent, so that a busy server loses no message; only
// Disconnect() ends that.

#include "bus/EventClientState.h"

#include <cerrno>
#include <new>
#include <utility>

namespace Telvane
{

int EventClient::Publish(const std::string& channel, TelvaneDataTypeBase& record)
{
    const ConnectionPointer connection = m_state->currentConnection();
    if (connection == nullptr) {
        return -ENOTCONN;
    }
    std::unique_ptr<PublicationWriter> writer = m_state->takeWriter();
    if (writer == nullptr) {
        return -ENOMEM;
    }
    const char* text = nullptr;
    int result = writer->write(channel, record, text);
    if (result == 0) {
        result = State::sendText(*connection, text, writer->length());
    }
    m_state->returnWriter(std::move(writer));
    return result;
}

std::unique_ptr<PublicationWriter> EventClient::State::takeWriter()
{
    PublicationWriter* const idle = idleWriter.exchange(nullptr);
    return std::unique_ptr<PublicationWriter>(idle != nullptr ? idle
                                                              : new (std::nothrow) PublicationWriter());
}

void EventClient::State::returnWriter(std::unique_ptr<PublicationWriter> writer)
{
    // Keep this one. Delete one that another thread has returned meanwhile.
    writer.reset(idleWriter.exchange(writer.release()));
}

int EventClient::State::send(cJSON* message)
{
    const ConnectionPointer used = currentConnection();
    if (used == nullptr) {
        return -ENOTCONN;
    }
    std::unique_ptr<PublicationWriter> writer = takeWriter();
    if (message == nullptr || writer == nullptr) {
        return -ENOMEM;
    }
    const char* const text = writer->print(message);
    const int result = text != nullptr ? sendText(*used, text, writer->length()) : -ENOMEM;
    returnWriter(std::move(writer));
    return result;
}

int EventClient::State::sendText(Connection& used, const char* text, int length)
{
    SentPacket packet;
    do {
        if (!used.open) {
            return -ENOTCONN;
        }
        packet = sendPacket(used.socket.get(), text, length, 0);
    } while (packet.sent <= 0);
    return packet.complete() ? 0 : packet.sent;
}

int EventClient::writeDataToSocket(char* data, int length)
{
    const ConnectionPointer connection = m_state->currentConnection();
    return connection != nullptr ? State::sendText(*connection, data, length) : -ENOTCONN;
}

} // namespace Telvane
