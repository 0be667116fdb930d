// Values of options, and colour.
#include "tools/cli/command_line.hpp"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <unistd.h>

namespace cli {
namespace {

struct Color {
    enum { automatic, always, never } when = automatic;
};
constinit Color color;

std::string shown(double value)
{
    char text[32];
    snprintf(text, sizeof text, "%g", value);
    return text;
}

} // namespace

int64_t whole_number(const std::string& text, int64_t low, int64_t high)
{
    errno = 0;
    char* end = nullptr;
    const bool hexadecimal = text.rfind("0x", 0) == 0;
    const int64_t value = strtoll(text.c_str(), &end, hexadecimal ? 16 : 10);
    const bool digits = !text.empty() && (text[0] == '-' || (text[0] >= '0' && text[0] <= '9'));
    if (errno || !digits || *end || value < low || value > high)
        throw WrongUse("give a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return value;
}

double number(const std::string& text, double low, double high)
{
    char* end = nullptr;
    const double value = strtod(text.c_str(), &end);
    if (end == text.c_str() || *end || !(value >= low && value <= high))
        throw WrongUse("give a number from " + shown(low) + " to " + shown(high));
    return value;
}

const std::string& given(const std::string& text)
{
    if (text.empty()) throw WrongUse("it is empty; give a value");
    return text;
}

const std::string& one_of(const std::string& text, const std::vector<std::string>& words)
{
    std::string list;
    for (const std::string& word : words) {
        if (text == word) return text;
        list += (list.empty() ? "" : &word == &words.back() ? " or " : ", ") + word;
    }
    throw WrongUse("give " + list);
}

void use_color(const std::string& when)
{
    color.when = one_of(when, {"auto", "always", "never"}) == "auto" ? Color::automatic
                 : when == "always"                                  ? Color::always
                                                                     : Color::never;
}

std::string paint(int fd, Style style, const std::string& text)
{
    const char* no = getenv("NO_COLOR");
    const bool on =
        color.when == Color::always || (color.when == Color::automatic && !(no && *no) && isatty(fd));
    if (!on) return text;
    const char* codes[] = {"\033[32m", "\033[31m", "\033[1m"};
    return codes[int(style)] + text + "\033[0m";
}

} // namespace cli
