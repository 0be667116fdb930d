// date: shows the camera's clock and sets it, through the preloaded clock calls.
#include "sim/guest/guest.hpp"
#include "sim/base/text.hpp"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace vcam {
namespace {

int show(const char* format)
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm parts = {};
    localtime_r(&now.tv_sec, &parts);
    char line[512];
    if (strftime(line, sizeof line, format, &parts) == 0 && *format) return 1;
    puts(line);
    return 0;
}

int two(const char* digits) { return (digits[0] - '0') * 10 + digits[1] - '0'; }

// MMDDhhmm[[CC]YY][.ss]; false when the word is none.
bool parse_set(const char* word, tm& parts)
{
    const size_t digits = strspn(word, "0123456789");
    const char* rest = word + digits;
    if (digits != 8 && digits != 10 && digits != 12) return false;
    if (*rest && !(rest[0] == '.' && isdigit(rest[1]) && isdigit(rest[2]) && !rest[3])) return false;
    parts.tm_mon = two(word) - 1;
    parts.tm_mday = two(word + 2);
    parts.tm_hour = two(word + 4);
    parts.tm_min = two(word + 6);
    parts.tm_sec = *rest ? two(rest + 1) : 0;
    if (digits == 12) parts.tm_year = two(word + 8) * 100 + two(word + 10) - 1900;
    if (digits == 10) parts.tm_year = two(word + 8) + (two(word + 8) < 69 ? 100 : 0);
    const tm wanted = parts;
    parts.tm_isdst = -1;
    time_t when = mktime(&parts); // moves 31 February on: such a date is refused
    return when != -1 && parts.tm_mday == wanted.tm_mday && parts.tm_hour == wanted.tm_hour;
}

} // namespace

int date_main(int argc, char** argv)
{
    constexpr auto kUsual = "%a %b %e %H:%M:%S %Z %Y";
    const char* word = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-u") == 0)
            setenv("TZ", "UTC0", 1);
        else if (strcmp(argv[i], "-s") != 0)
            word = argv[i];
    }
    if (!word) return show(kUsual);
    if (*word == '+') return show(word + 1);
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm parts = {};
    localtime_r(&now.tv_sec, &parts);
    if (!parse_set(word, parts)) fail("invalid date '%s'", word);
    timeval wanted = {mktime(&parts), 0};
    if (settimeofday(&wanted, nullptr) < 0) fail("can't set date");
    return show(kUsual);
}

} // namespace vcam
