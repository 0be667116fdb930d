// Text helpers, and the error that a person gets as one line.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vcam {

// What went wrong, where, and what to do: one line, printed once by main.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);
// Throws an Error of that text. errno, where it matters, is already in the arguments.
[[noreturn, gnu::format(printf, 1, 2)]] void fail(const char* format, ...);

std::vector<std::string> split(std::string_view line, char separator);
std::string trim(std::string_view line);
std::string join(const std::vector<std::string>& words, std::string_view separator);
bool starts_with(std::string_view text, std::string_view head);

// "64K", "16M", "0x10000" or plain decimal; `bytes` keeps its value when the text is none of them.
bool is_size(const std::string& number, uint64_t& bytes);
// The same, or an Error that names `what`.
uint64_t parse_size(const std::string& number, const char* what);
// A number of seconds of zero or more, fractions allowed.
double parse_seconds(const std::string& number, const char* what);

std::string human_size(uint64_t bytes); // "512K", "12M", "1234"
// Control characters as \n, \t, \xNN, so that one message is one line.
std::string one_line(std::string_view message);
// JSON inside of a script element of a page, whose end a "<" would begin.
std::string in_script_element(const std::string& json);
// Replaces the first place that has `what`, which must be there.
void replace_first(std::string& text, std::string_view what, const std::string& with);

} // namespace vcam
