// Text helpers, and the error that a person gets as one line.
#include "sim/base/text.hpp"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace vcam {
namespace {

[[gnu::format(printf, 1, 0)]] std::string vtext(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string out(length < 0 ? 0 : size_t(length), '\0');
    vsnprintf(out.data(), out.size() + 1, format, arguments);
    return out;
}

} // namespace

std::string text(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string out = vtext(format, arguments);
    va_end(arguments);
    return out;
}

void fail(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string out = vtext(format, arguments);
    va_end(arguments);
    throw Error(out);
}

std::vector<std::string> split(std::string_view line, char separator)
{
    std::vector<std::string> out;
    for (;;) {
        size_t end = line.find(separator);
        out.emplace_back(line.substr(0, end));
        if (end == std::string_view::npos) return out;
        line.remove_prefix(end + 1);
    }
}

std::string trim(std::string_view line)
{
    constexpr std::string_view kBlanks = " \t\r\n";
    size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return "";
    return std::string(line.substr(first, line.find_last_not_of(kBlanks) - first + 1));
}

std::string join(const std::vector<std::string>& words, std::string_view separator)
{
    std::string out;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i) out += separator;
        out += words[i];
    }
    return out;
}

bool starts_with(std::string_view text, std::string_view head) { return text.substr(0, head.size()) == head; }

bool is_size(const std::string& number, uint64_t& bytes)
{
    errno = 0;
    char* end = nullptr;
    const uint64_t value = strtoull(number.c_str(), &end, 0);
    if (errno || end == number.c_str() || number[0] == '-') return false;
    const int unit = toupper(static_cast<unsigned char>(*end));
    const int shift = unit == 'K' ? 10 : unit == 'M' ? 20 : unit == 'G' ? 30 : 0;
    if (end[shift ? 1 : 0] || (value << shift >> shift) != value) return false;
    bytes = value << shift;
    return true;
}

uint64_t parse_size(const std::string& number, const char* what)
{
    uint64_t bytes = 0;
    if (!is_size(number, bytes))
        fail("%s: '%s' is no size; write bytes, 0x..., or a number with K, M or G", what, number.c_str());
    return bytes;
}

constexpr double kMostSeconds = 1e9; // some thirty years: nanoseconds of it fit into 64 bits

double parse_seconds(const std::string& number, const char* what)
{
    char* end = nullptr;
    double value = strtod(number.c_str(), &end);
    if (end == number.c_str() || *end || !(value >= 0 && value <= kMostSeconds))
        fail("%s: '%s' is no number of seconds up to %.0f", what, number.c_str(), kMostSeconds);
    return value;
}

std::string human_size(uint64_t bytes)
{
    constexpr uint64_t kMega = 1 << 20, kKilo = 1 << 10;
    if (bytes && bytes % kMega == 0) return text("%lluM", (unsigned long long)(bytes / kMega));
    if (bytes && bytes % kKilo == 0) return text("%lluK", (unsigned long long)(bytes / kKilo));
    return text("%llu", (unsigned long long)bytes);
}

std::string one_line(std::string_view message)
{
    std::string out;
    for (unsigned char c : message) {
        if (c == '\n')
            out += "\\n";
        else if (c == '\t')
            out += "\\t";
        else if (c < 0x20 || c == 0x7f)
            out += text("\\x%02x", c);
        else
            out += char(c);
    }
    return out;
}

std::string in_script_element(const std::string& json)
{
    std::string out;
    for (const char c : json) {
        if (c == '<')
            out += "\\u003c";
        else
            out += c;
    }
    return out;
}

void replace_first(std::string& text, std::string_view what, const std::string& with)
{
    text.replace(text.find(what), what.size(), with);
}

} // namespace vcam
