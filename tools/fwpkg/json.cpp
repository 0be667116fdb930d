// JSON writer.
#include "tools/fwpkg/json.hpp"

#include <cstdio>

namespace fwpkg {
namespace {

// Names in image headers are bytes of no stated encoding: what is not plain ASCII is taken as
// Latin-1, so that the output is valid JSON whatever a file holds.
std::string quoted(const std::string& value)
{
    std::string text = "\"";
    for (unsigned char c : value) {
        char escaped[8];
        bool plain = c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
        snprintf(escaped, sizeof escaped, plain ? "%c" : "\\u%04x", c);
        text += escaped;
    }
    return text + "\"";
}

} // namespace

void Json::item(const char* key)
{
    if (!out_.empty()) out_ += first_ ? "\n" : ",\n";
    out_.append(size_t(2 * depth_), ' ');
    if (key) out_ += quoted(key) + ": ";
    first_ = false;
}

void Json::open(const char* key, char bracket)
{
    item(key);
    out_ += bracket;
    ++depth_;
    first_ = true;
}

void Json::close(char bracket)
{
    --depth_;
    out_ += '\n';
    out_.append(size_t(2 * depth_), ' ');
    out_ += bracket;
    first_ = false;
}

void Json::text(const char* key, const std::string& value)
{
    item(key);
    out_ += quoted(value);
}

void Json::number(const char* key, int64_t value)
{
    item(key);
    out_ += std::to_string(value);
}

void Json::boolean(const char* key, bool value)
{
    item(key);
    out_ += value ? "true" : "false";
}

} // namespace fwpkg
