// JSON of the host tools.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>

namespace cli {

using Json = nlohmann::ordered_json;

// Strings are UTF-8 as given; bytes that are none become U+FFFD. Indented when a person may read it.
inline void print_json(const Json& json, int indent = -1)
{
    puts(json.dump(indent, ' ', false, Json::error_handler_t::replace).c_str());
}

} // namespace cli
