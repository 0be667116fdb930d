// The records of requests whose numbers do not say how long they are.
#include "sim/cuse/records.hpp"

#include <cstring>
#include <sys/ioctl.h>
#include <termios.h>

namespace vcam::cuse {
namespace {

constexpr size_t kSettings = 36, kWord = 4,
                 kTime = 28; // the kernel's terminal settings; a clock's seven integers
constexpr uint32_t kGetSettings = 0x5401, kLineStatus = 0x5459;

constexpr struct {
    const char* device; // or how it begins
    uint32_t request;
    Record record;
} kRecords[] = {
    {"gpioi2c", 1, {kWord, kWord}},
    {"gpioi2c", 3, {kWord, 0}},
    {"ds1339", 1, {0, kTime}},
    {"ds1339", 3, {kTime, 0}},
    {"tty", kGetSettings, {0, kSettings}},
    {"tty", kGetSettings + 1, {kSettings, 0}},
    {"tty", kGetSettings + 2, {kSettings, 0}},
    {"tty", kGetSettings + 3, {kSettings, 0}},
    {"tty", TIOCMGET, {0, kWord}},
    {"tty", TIOCMSET, {kWord, 0}},
    {"tty", TIOCMBIS, {kWord, 0}},
    {"tty", TIOCMBIC, {kWord, 0}},
    {"tty", kLineStatus, {0, kWord}},
    {"tty", FIONREAD, {0, kWord}},
    {"tty", TIOCOUTQ, {0, kWord}},
    {"tty", TIOCGWINSZ, {0, sizeof(winsize)}},
};

} // namespace

Record record_of(const Model& model, uint32_t request)
{
    for (const auto& row : kRecords)
        if (row.request == request && strncmp(model.name, row.device, strlen(row.device)) == 0)
            return row.record;
    return model.record(request);
}

} // namespace vcam::cuse
