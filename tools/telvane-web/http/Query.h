#pragma once

#include "telvane-web/http/HttpTypes.h"

#include <charconv>

namespace TelvaneTool
{

/// \return \p fallback if the text is not a number
template <class Number>
Number numberOr(const std::string& text, Number fallback)
{
    Number number = 0;
    const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return whole ? number : fallback;
}

/// \return the value of a query, or an empty text
inline std::string valueOf(const HttpRequest& request, const char* name)
{
    return std::string(request.query(name).value_or(""));
}

/// \return an answer with an error
inline HttpReply httpFailure(unsigned status, std::string text)
{
    HttpReply reply;
    reply.status = status;
    reply.body = std::move(text) + "\n";
    return reply;
}

/// \return an answer with a JSON text
inline HttpReply httpJson(std::string text)
{
    HttpReply reply;
    reply.type = "application/json";
    reply.body = std::move(text);
    return reply;
}

} // namespace TelvaneTool
