// The hardware watchdog. Its driver counts in units of two seconds, arms the timer when the device is
// opened, is open to one program at a time, and stops only when it is closed after a 'V' was the last
// thing written.
//
// Who holds the device is kept as a lock on the backing file: the kernel drops it with the last
// descriptor of that opening, however the holder ends.
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/models/table.hpp"
#include "sim/base/raw.hpp"
#include "sim/clock/watchdog_timer.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/file.h>

namespace vcam::models {
namespace {
namespace watchdog_driver {

// The kernel's watchdog interface.
constexpr uint32_t kGetSupport = 0x80285700, kGetStatus = 0x80045701, kGetBootStatus = 0x80045702,
                   kKeepAlive = 0x80045705, kSetTimeout = 0xC0045706, kGetTimeout = 0x80045707,
                   kGetTimeLeft = 0x8004570A;
constexpr uint32_t kHasTimeout = 0x0080, kHasMagicClose = 0x0100, kHasKeepAlive = 0x8000;

struct WatchdogInfo {
    uint32_t options;
    uint32_t firmware;
    char identity[32];
};
static_assert(sizeof(WatchdogInfo) == 40);

constexpr RequestName kNames[] = {
    {kSetTimeout, "settimeout"}, {kGetTimeout, "gettimeout"}, {kKeepAlive, "keepalive"}};

class Watchdog final : public Model {
public:
    Watchdog() : Model("/dev/watchdog", "watchdog", kNames) {}

    int open(int flags) override
    {
        const int fd = Model::open(flags);
        if (fd < 0) return fd;
        if (raw::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            raw::close(fd);
            return -EBUSY;
        }
        watchdog::arm();
        return fd;
    }
    ssize_t read(int, void*, size_t) override { return -EINVAL; }
    ssize_t write(int, const void* data, size_t size) override
    {
        if (size) watchdog::feed(memchr(data, 'V', size) != nullptr);
        return ssize_t(size);
    }
    ssize_t pread(int, void*, size_t, int64_t) override { return -ESPIPE; }
    ssize_t pwrite(int, const void*, size_t, int64_t) override { return -ESPIPE; }
    int64_t seek(int, int64_t, int) override { return -ESPIPE; }

    int ioctl(int, uint32_t request, void* argument) override
    {
        if (request == kKeepAlive) {
            watchdog::feed(false);
            return 0;
        }
        if (!argument) return -EFAULT;
        int32_t value = 0;
        memcpy(&value, argument, request == kSetTimeout ? sizeof value : 0);
        switch (request) {
        case kGetSupport:
            return support(argument);
        case kGetStatus:
        case kGetBootStatus:
            break;
        case kSetTimeout:
            if (!watchdog::set_timeout(value)) return -EINVAL;
            break;
        case kGetTimeout:
            value = watchdog::timeout();
            break;
        case kGetTimeLeft:
            value = watchdog::units_left();
            break;
        default:
            return -ENOTTY;
        }
        memcpy(argument, &value, sizeof value);
        return 0;
    }
    void closed() override { watchdog::released(); }

private:
    static int support(void* argument)
    {
        WatchdogInfo info{kHasTimeout | kHasMagicClose | kHasKeepAlive, 0, {}};
        snprintf(info.identity, sizeof info.identity, "watchdog of the virtual camera");
        memcpy(argument, &info, sizeof info);
        return 0;
    }
};

} // namespace watchdog_driver
} // namespace

Model& watchdog()
{
    static watchdog_driver::Watchdog device;
    return device;
}

} // namespace vcam::models
