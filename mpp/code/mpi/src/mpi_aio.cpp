// What audio input and output share.
#include "mpi/src/mpi_aio.hpp"

#include "base/mpp_report.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zep {

namespace {

struct Ratio {
    uint32_t up;
    uint32_t down;
};
// By kind; there is no kind 0.
constexpr Ratio kRatios[] = {{1, 1}, {2, 1}, {1, 2}, {4, 1}, {1, 4}, {6, 1}, {1, 6}};
constexpr int (*kProcess[])(RESAMPLER_S*, const int16_t*, int, int16_t*) = {
    nullptr,
    ResamplerMono1X2Process,
    ResamplerMono2X1Process,
    ResamplerMono1X4Process,
    ResamplerMono4X1Process,
    ResamplerMono1X6Process,
    ResamplerMono6X1Process,
};

} // namespace

uint32_t scale_by_kind(uint32_t kind, uint32_t value)
{
    return valid_kind(kind) ? value * kRatios[kind].up / kRatios[kind].down : value;
}

bool ResampleStage::same(const AIO_RESAMPLE_ATTR_S& other) const
{
    return memcmp(&attr, &other, sizeof attr) == 0;
}

bool ResampleStage::enable(const AIO_RESAMPLE_ATTR_S& wanted)
{
    handle = ResamplerCreate(int(wanted.enReSampleType), int(wanted.enInSampleRate));
    if (!handle) return false;
    attr = wanted;
    process = kProcess[wanted.enReSampleType]; // a kind without one has no resampler
    destroy = ResamplerDestroy;
    enabled = true;
    return true;
}

void ResampleStage::disable()
{
    if (handle) destroy(handle);
    *this = {};
}

namespace {

// Opens the device and hands the slot's number to the driver; -1 when either fails.
int open_slot(const AioPort& port, uint32_t slot)
{
    int fd = open(port.path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return -1;
    if (ioctl(fd, static_cast<unsigned long>(port.bind_slot), &slot) == 0) return fd;
    close(fd);
    return -1;
}

// A plain file would swallow frames without a sound.
bool is_character_device(const char* path)
{
    struct stat status = {};
    if (stat(path, &status) < 0) {
        MPP_LOG("Cannot identify '%s': %d, %s\n", path, errno, strerror(errno));
        return false;
    }
    if (S_ISCHR(status.st_mode)) return true;
    MPP_LOG("%s is no device\n", path);
    return false;
}

} // namespace

int32_t AioPort::check(const char* function, int line, int32_t device, int32_t channel) const
{
    if (!valid_device(device)) {
        mpp_log(function, line, "%sdev%d is not supported\n", name, device);
        return error(MPP_ERR_DEVICE);
    }
    return valid_channel(channel) ? 0 : refuse_channel(function, line, channel);
}

int32_t AioPort::refuse_channel(const char* function, int line, int32_t channel) const
{
    mpp_log(function, line, "%s chnid %d is invalid\n", name, channel);
    return error(MPP_ERR_CHANNEL);
}

int AioPort::descriptor(size_t slot)
{
    int fd = slots.get(slot);
    if (fd >= 0) return fd;
    if (must_be_character && !is_character_device(path)) return -1;
    fd = open_slot(*this, uint32_t(slot));
    if (fd >= 0) slots.set(slot, fd);
    return fd;
}

int32_t AioPort::descriptor_or_code(size_t slot)
{
    int fd = descriptor(slot);
    return fd < 0 ? error(MPP_ERR_REFUSED) : fd;
}

int32_t AioPort::request(size_t slot, uint32_t code, void* argument)
{
    int fd = descriptor(slot);
    return fd < 0 ? error(MPP_ERR_REFUSED) : ioctl(fd, static_cast<unsigned long>(code), argument);
}

int32_t AioPort::operate(const char* function, int line, int32_t device, int32_t channel, uint32_t code)
{
    if (int32_t refused = check(function, line, device, channel)) return refused;
    return request(slot_of(device, channel), code);
}

int32_t AioPort::exchange(const char* function, int line, int32_t device, uint32_t code, AIO_ATTR_S* attr)
{
    if (int32_t refused = check(function, line, device)) return refused;
    return attr ? request(slot_of(device, 0), code, attr) : error(MPP_ERR_NULL);
}

bool ready_now(int fd, short event)
{
    pollfd wanted = {fd, event, 0};
    return poll(&wanted, 1, 0) == 1 && (wanted.revents & event);
}

} // namespace zep
