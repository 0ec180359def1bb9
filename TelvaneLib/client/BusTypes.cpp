// The messages of BusError, and the standard error conditions that its values equal.

#include <Telvane/BusTypes.h>

#include <new>

namespace Telvane
{

namespace
{

class BusCategory : public std::error_category
{
public:
    const char* name() const noexcept override { return "telvane-bus"; }

    std::string message(int value) const override
    {
        switch (static_cast<BusError>(value)) {
        case BusError::NotConnected:
            return "not connected to the server";
        case BusError::TimedOut:
            return "timed out";
        case BusError::TooLarge:
            return "the message is too large";
        case BusError::OutOfMemory:
            return "out of memory";
        case BusError::NotWritable:
            return "the record cannot be written as JSON";
        case BusError::Lost:
            return "the connection to the server was lost";
        case BusError::Closed:
            return "closed";
        case BusError::Refused:
            return "the server refused the channel: names have letters and underscores only, and the server "
                   "may have limits";
        case BusError::WouldDeadlock:
            return "the caller would wait for itself";
        case BusError::NoServer:
            return "no server serves the path";
        case BusError::NoPermission:
            return "permission denied by the socket's file";
        case BusError::Busy:
            return "the server does not accept connections at present";
        case BusError::TurnedAway:
            return "the server closed the connection: this user may not connect, or it has too many clients";
        case BusError::NoAnswer:
            return "the server does not answer";
        case BusError::NotABus:
            return "the path is not the socket of a server";
        case BusError::BadPath:
            return "the path of a socket has 1 to 107 characters";
        }
        return "unknown error";
    }

    std::error_condition default_error_condition(int value) const noexcept override
    {
        return std::make_error_condition(conditionOf(static_cast<BusError>(value)));
    }

private:
    static std::errc conditionOf(BusError error)
    {
        switch (error) {
        case BusError::NotConnected:
            return std::errc::not_connected;
        case BusError::TimedOut:
        case BusError::NoAnswer:
            return std::errc::timed_out;
        case BusError::TooLarge:
            return std::errc::message_size;
        case BusError::OutOfMemory:
            return std::errc::not_enough_memory;
        case BusError::NotWritable:
            return std::errc::invalid_argument;
        case BusError::Lost:
            return std::errc::connection_reset;
        case BusError::Closed:
            return std::errc::operation_canceled;
        case BusError::Refused:
            return std::errc::operation_not_permitted;
        case BusError::WouldDeadlock:
            return std::errc::resource_deadlock_would_occur;
        case BusError::NoServer:
            return std::errc::connection_refused;
        case BusError::NoPermission:
            return std::errc::permission_denied;
        case BusError::Busy:
            return std::errc::resource_unavailable_try_again;
        case BusError::TurnedAway:
            return std::errc::connection_aborted;
        case BusError::NotABus:
            return std::errc::wrong_protocol_type;
        case BusError::BadPath:
            return std::errc::filename_too_long;
        }
        return std::errc::invalid_argument;
    }
};

} // namespace

const std::error_category& busCategory() noexcept
{
    // Never destroyed: threads of the bus may still use it while static objects are.
    alignas(BusCategory) static unsigned char storage[sizeof(BusCategory)];
    static const BusCategory& category = *new (storage) BusCategory;
    return category;
}

std::string Publication::message() const
{
    if (error == BusError::TooLarge) {
        return "the message has " + std::to_string(size) + " bytes, at most " + std::to_string(kLimit) +
               " arrive";
    }
    if (error) {
        return error.message();
    }
    return queued ? "queued" : "sent";
}

} // namespace Telvane
