// The tokens of a configuration line, bounded.
#include "common/conf/conf_token.hpp"

#include <algorithm>
#include <cstring>

namespace zep {

namespace {

constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }

constexpr bool ends_token(char c) { return c == '=' || c == '\n' || c == '\r' || c == '\0'; }

} // namespace

ConfToken conf_token(const char* cursor)
{
    while (is_blank(*cursor)) ++cursor;
    if (conf_ends_line(cursor)) return {.next = cursor};
    if (*cursor == '=') return {.next = cursor + 1, .text = cursor, .length = 0};
    const char* begin = cursor;
    const char* end = begin;
    while (!ends_token(*end)) ++end;
    if (begin == end) return {.next = nullptr};

    const char* next = *end == '=' ? end + 1 : end;
    if (is_blank(end[-1])) --end; // one blank only: a key with two in front of `=` keeps one
    if (*begin == '"') {
        // The last character goes whatever it is: an unclosed quote costs the value its last letter.
        ++begin;
        if (begin < end) --end;
    }
    return {.next = next, .text = begin, .length = size_t(end - begin)};
}

void conf_copy(const ConfToken& token, std::span<char> to)
{
    if (!token.text || to.empty()) return;
    size_t length = std::min(token.length, to.size() - 1);
    memcpy(to.data(), token.text, length);
    to[length] = '\0';
}

const char* conf_value(const char* cursor, std::span<char> value)
{
    ConfToken token = conf_token(cursor);
    if (!token.next) value[0] = '\0';
    conf_copy(token, value);
    return token.next;
}

} // namespace zep
