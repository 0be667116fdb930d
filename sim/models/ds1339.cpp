// The driver of the DS1339 real-time clock: two requests of its own on a record of seven integers.
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/models/request_device.hpp"
#include "sim/models/table.hpp"
#include "sim/board/rtc_chip.hpp"

#include <cstring>

namespace vcam::models {
namespace {
namespace ds1339_driver {

constexpr uint32_t kRead = 1, kWrite = 3;
constexpr RequestName kNames[] = {{kRead, "read"}, {kWrite, "write"}};

static_assert(sizeof(rtc::Time) == 28 && offsetof(rtc::Time, year) == 0 &&
              offsetof(rtc::Time, weekday) == 24);

void note(const char* what, const rtc::Time& time)
{
    journal::add("ds1339", what + (" " + rtc::format(time)) + " weekday " + std::to_string(time.weekday));
}

class Ds1339 final : public RequestDevice {
public:
    Ds1339() : RequestDevice("/dev/ds1339", "ds1339", kNames) {}

    int ioctl(int, uint32_t request, void* record) override
    {
        if (request != kRead && request != kWrite) return -ENOTTY;
        if (!record) return -EFAULT;
        return request == kRead ? read_time(record) : write_time(record);
    }

private:
    static int read_time(void* record)
    {
        const rtc::Time time = rtc::read(rtc::load());
        memcpy(record, &time, sizeof time);
        note("read", time);
        return 0;
    }
    // The seconds begin anew with a write. A write does not heal the chip.
    static int write_time(const void* record)
    {
        rtc::Time time;
        memcpy(&time, record, sizeof time);
        if (!rtc::valid(time)) {
            note("refused", time);
            return -EINVAL;
        }
        rtc::Chip chip = rtc::load();
        chip.set = time;
        chip.at_ns = clock::now_ns();
        note("write", time);
        return rtc::store(chip) ? 0 : -EIO;
    }
};

} // namespace ds1339_driver
} // namespace

Model& ds1339()
{
    static ds1339_driver::Ds1339 device;
    return device;
}

} // namespace vcam::models
