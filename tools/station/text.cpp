// Text of a board, made fit to be shown.
#include "tools/station/text.hpp"

#include <cstdint>
#include <cstdio>

namespace station {
namespace {

constexpr uint32_t kWrong = 0xFFFD;

struct Character {
    uint32_t code;
    size_t length; // bytes that it takes, 1 for a wrong one
};

// By the table of well-formed sequences of the Unicode standard: no overlong form, no surrogate.
Character decode(std::string_view text)
{
    const auto byte = [&](size_t i) { return i < text.size() ? uint8_t(text[i]) : 0u; };
    const uint32_t first = byte(0);
    if (first < 0x80) return {first, 1};
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4) return {kWrong, 1};
    uint32_t code = first & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {kWrong, 1};
        code = code << 6 | (byte(i) & 0x3F);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    // XML knows neither of the last two.
    const bool no_character = code > 0x10FFFF || code == 0xFFFE || code == 0xFFFF;
    if (code < kLeast[length] || surrogate || no_character) return {kWrong, 1};
    return {code, length};
}

bool turns_writing(uint32_t code)
{
    return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) || code == 0x200E ||
           code == 0x200F || code == 0x2028 || code == 0x2029;
}

size_t next(const std::string& text, size_t at)
{
    ++at;
    while (at < text.size() && (uint8_t(text[at]) & 0xC0) == 0x80) ++at;
    return at;
}

} // namespace

std::string harmless(std::string_view bytes)
{
    std::string out;
    char code[16];
    while (!bytes.empty()) {
        const Character c = decode(bytes);
        const bool line_end = c.code == '\r' && bytes.size() > 1 && bytes[1] == '\n';
        if (c.code == kWrong)
            out += "\xEF\xBF\xBD";
        else if (turns_writing(c.code))
            out.append(code, size_t(snprintf(code, sizeof code, "\\u%04X", c.code)));
        else if (c.code == '\n' || c.code == '\t' ||
                 (c.code >= 0x20 && c.code != 0x7F && !(c.code >= 0x80 && c.code < 0xA0)))
            out += bytes.substr(0, c.length);
        else if (!line_end)
            out.append(code, size_t(snprintf(code, sizeof code, "\\x%02X", c.code)));
        bytes.remove_prefix(c.length);
    }
    return out;
}

std::string harmless_line(std::string_view bytes, size_t most)
{
    std::string line = harmless(bytes.substr(0, 4 * most));
    for (char& c : line)
        if (c == '\n' || c == '\t') c = ' ';
    return clipped(line, most);
}

std::string clipped(const std::string& text, size_t most, size_t fill)
{
    size_t at = 0, count = 0;
    for (; at < text.size() && count < most; ++count) at = next(text, at);
    return text.substr(0, at) + std::string(count < fill ? fill - count : 0, ' ');
}

std::string last_line(const std::string& text)
{
    const size_t end = text.find_last_not_of(" \t\r\n");
    if (end == std::string::npos) return "";
    const size_t begin = text.rfind('\n', end);
    return begin == std::string::npos ? text.substr(0, end + 1) : text.substr(begin + 1, end - begin);
}

std::string escaped(const std::string& text)
{
    std::string out;
    for (char c : text) switch (c) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    return out;
}

std::string seconds_text(double seconds)
{
    char text[32];
    snprintf(text, sizeof text, "%.1f", seconds);
    return text;
}

} // namespace station
