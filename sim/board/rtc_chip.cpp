// The battery-backed clock.
#include "sim/board/rtc_chip.hpp"
#include "sim/clock/clock.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sstream>

namespace vcam::rtc {
namespace {

constexpr struct {
    const char* name;
    bool Chip::*fault;
} kFaults[] = {{"stopped", &Chip::stopped}, {"no-leap", &Chip::no_leap}, {"bcd", &Chip::bcd}};

int days_of_month(const Time& t, bool no_leap)
{
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = t.year % 4 == 0 && !no_leap; // right for every year that it can count
    return kDays[t.month - 1] + (t.month == 2 && leap);
}

void next_day(Time& t, bool no_leap)
{
    t.weekday = (t.weekday + 1) % 7;
    if (++t.day <= days_of_month(t, no_leap)) return;
    t.day = 1;
    if (++t.month <= 12) return;
    t.month = 1;
    if (++t.year > 2099) t.year = 2000; // two digits
}

int32_t as_registers(int32_t value) { return value / 10 * 16 + value % 10; }

Time calendar_time()
{
    const time_t seconds = time_t(clock::wall_ns() / clock::kSecond);
    tm parts = {};
    ::gmtime_r(&seconds, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
            parts.tm_min,         parts.tm_sec,     parts.tm_wday};
}

} // namespace

Chip load()
{
    Chip chip = {};
    std::istringstream in(raw::read_text(state::path("rtc")));
    std::string date, time;
    int32_t weekday = 0;
    if (in >> date >> time >> weekday >> chip.at_ns && parse(date + " " + time, chip.set)) {
        chip.set.weekday = weekday;
        for (std::string word; in >> word;) add_fault(chip, word);
        return chip;
    }
    chip.set = calendar_time();
    chip.at_ns = clock::now_ns();
    store(chip);
    return chip;
}

bool store(const Chip& chip)
{
    const std::string words = faults(chip);
    const std::string line = format(chip.set) + " " + std::to_string(chip.set.weekday) + " " +
                             std::to_string(chip.at_ns) + (words.empty() ? "" : " ") + words + "\n";
    const raw::Fd fd(raw::open(state::path("rtc").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    return fd && raw::write_all(fd.get(), line.data(), line.size());
}

Time counted(const Chip& chip)
{
    Time t = chip.set;
    if (chip.stopped) return t;
    const int64_t seconds = (clock::now_ns() - chip.at_ns) / 1000 * (1000 + chip.drift) / clock::kSecond;
    int64_t of_day = t.hour * 3600 + t.minute * 60 + t.second + (seconds > 0 ? seconds : 0);
    for (; of_day >= 86400; of_day -= 86400) next_day(t, chip.no_leap);
    t.hour = int32_t(of_day / 3600);
    t.minute = int32_t(of_day / 60 % 60);
    t.second = int32_t(of_day % 60);
    return t;
}

Time read(const Chip& chip)
{
    Time t = counted(chip);
    if (!chip.bcd) return t;
    for (int32_t Time::*field : {&Time::month, &Time::day, &Time::hour, &Time::minute, &Time::second})
        t.*field = as_registers(t.*field);
    return t;
}

bool valid(const Time& t)
{
    return t.year >= 2000 && t.year <= 2099 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
           t.day <= days_of_month(t, false) && t.hour >= 0 && t.hour <= 23 && t.minute >= 0 &&
           t.minute <= 59 && t.second >= 0 && t.second <= 59 && t.weekday >= 0 && t.weekday <= 6;
}

std::string format(const Time& t)
{
    char text[96];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute,
             t.second);
    return text;
}

bool parse(const std::string& text, Time& t)
{
    t.weekday = 0;
    int used = 0;
    const int fields = sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &t.year, &t.month, &t.day, &t.hour,
                              &t.minute, &t.second, &used);
    if (fields != 6 || size_t(used) != text.size() || !valid(t)) return false;
    Time day = {2000, 1, 1, 0, 0, 0, 6};
    while (day.year != t.year || day.month != t.month || day.day != t.day) next_day(day, false);
    t.weekday = day.weekday;
    return true;
}

std::string faults(const Chip& chip)
{
    std::string words;
    for (const auto& row : kFaults)
        if (chip.*row.fault) words += (words.empty() ? "" : " ") + std::string(row.name);
    if (chip.drift) words += (words.empty() ? "drift=" : " drift=") + std::to_string(chip.drift);
    return words;
}

bool add_fault(Chip& chip, const std::string& name)
{
    for (const auto& row : kFaults)
        if (name == row.name) return chip.*row.fault = true;
    int used = 0;
    int32_t drift = 0;
    if (sscanf(name.c_str(), "drift=%d%n", &drift, &used) != 1 || size_t(used) != name.size()) return false;
    if (drift <= -1000 || drift > 1000) return false;
    chip.drift = drift;
    return true;
}

} // namespace vcam::rtc
