#pragma once

#include "support/JsonWriter.h"

#include <string>

namespace Telvane
{

/// \return the relay that a server prints
inline std::string relayOf(const cJSON* payload, const std::string& channel)
{
    constexpr std::size_t kMaxTextLength = 100'000;
    JsonWriter writer(kMaxTextLength);
    writer.clear();
    writer.put("{\n\t\"header\":\t");
    writer.string(channel.c_str());
    writer.put(",\n\t\"sequence\":\t4711,\n\t\"payload\":\t");
    writer.tree(payload, 1);
    writer.put("\n}");
    const char* const text = writer.finish();
    return text != nullptr ? text : "";
}

} // namespace Telvane
