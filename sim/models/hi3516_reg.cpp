// The register-access driver: set, clear and read a word, on a record of address and value.
#include "sim/clock/journal.hpp"
#include "sim/models/request_device.hpp"
#include "sim/models/table.hpp"
#include "sim/board/registers.hpp"

#include <cstdio>
#include <cstring>

namespace vcam::models {
namespace {
namespace hi3516_reg_driver {

constexpr uint32_t kSet = 0xC0085201, kClear = 0xC0085202, kRead = 0xC0085203;
constexpr RequestName kNames[] = {{kSet, "set"}, {kClear, "clear"}, {kRead, "read"}};

struct Record {
    uint32_t address, value;
};

class Registers final : public RequestDevice {
public:
    Registers() : RequestDevice("/dev/hi3516_reg", "hi3516_reg", kNames) {}

    int ioctl(int, uint32_t request, void* argument) override
    {
        if (request < kSet || request > kRead) return -ENOTTY;
        if (!argument) return -EFAULT;
        Record record;
        memcpy(&record, argument, sizeof record);
        const int result = run(request, record);
        if (result == 0) memcpy(argument, &record, sizeof record);
        note(request, record, result);
        return result;
    }

private:
    static int run(uint32_t request, Record& record)
    {
        if (request == kRead) return registers::read(record.address, record.value);
        return request == kSet ? registers::set_bits(record.address, record.value)
                               : registers::clear_bits(record.address, record.value);
    }
    void note(uint32_t request, const Record& record, int result) const
    {
        char text[96];
        snprintf(text, sizeof text, "%s 0x%08X %s0x%08X%s", request_name(request), record.address,
                 request == kRead ? "= " : "", record.value, result < 0 ? " refused" : "");
        journal::add("hi3516_reg", text);
    }
};

} // namespace hi3516_reg_driver
} // namespace

Model& hi3516_reg()
{
    static hi3516_reg_driver::Registers device;
    return device;
}

} // namespace vcam::models
