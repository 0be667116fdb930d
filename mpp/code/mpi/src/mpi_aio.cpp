// What audio input and output share.
#include "mpi/src/mpi_aio.hpp"

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
int open_slot(const AioDriver& driver, uint32_t slot)
{
    int fd = open(driver.path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return -1;
    if (ioctl(fd, static_cast<unsigned long>(driver.bind_slot), &slot) == 0) return fd;
    close(fd);
    return -1;
}

// A plain file would swallow frames without a sound.
bool is_character_device(Operation operation, const char* path)
{
    struct stat status = {};
    if (stat(path, &status) < 0) {
        mpp_log(operation.name, operation.line, "Cannot identify '%s': %d, %s\n", path, errno,
                strerror(errno));
        return false;
    }
    if (S_ISCHR(status.st_mode)) return true;
    mpp_log(operation.name, operation.line, "%s is no device\n", path);
    return false;
}

// What can be said without the device.
bool check_record(const AIO_RESAMPLE_ATTR_S& attr, Refusal& refusal)
{
    if (attr.u32InPointNum > kAioMaxPoints)
        refusal = Refusal::points;
    else if (attr.enInSampleRate < kAioMinRate || attr.enInSampleRate > kAioMaxRate)
        refusal = Refusal::rate;
    else if (!valid_kind(attr.enReSampleType))
        refusal = Refusal::kind;
    else
        return true;
    return false;
}

// The device's side of the resampling must be the device's.
bool check_device(bool device_is_output, const AIO_RESAMPLE_ATTR_S& attr, const AIO_ATTR_S& current,
                  Refusal& refusal)
{
    const uint32_t kind = device_is_output ? attr.enReSampleType : 0; // 0 leaves a number as it is
    if (current.u32PtNumPerFrm != scale_by_kind(kind, attr.u32InPointNum))
        refusal = Refusal::device_points;
    else if (current.enSamplerate != scale_by_kind(kind, attr.enInSampleRate))
        refusal = Refusal::device_rate;
    else if (current.enSoundmode == AUDIO_SOUND_STEREO)
        refusal = Refusal::stereo;
    else
        return true;
    return false;
}

uint32_t number_of(Refusal refusal)
{
    switch (refusal) {
    case Refusal::other_attributes:
        return MPP_ERR_NOT_PERM;
    case Refusal::no_device:
        return MPP_ERR_NO_CONFIG;
    case Refusal::no_memory:
        return MPP_ERR_NO_MEMORY;
    default:
        return MPP_ERR_PARAM;
    }
}

} // namespace

int32_t AioDriver::check(Operation operation, int32_t device, int32_t channel) const
{
    if (!valid_device(device)) {
        mpp_log(operation.name, operation.line, "%sdev%d is not supported\n", name, device);
        return coded(MPP_ERR_DEVICE);
    }
    return valid_channel(channel) ? 0 : refuse_channel(operation, channel);
}

int32_t AioDriver::refuse_channel(Operation operation, int32_t channel) const
{
    mpp_log(operation.name, operation.line, "%s chnid %d is invalid\n", name, channel);
    return coded(MPP_ERR_CHANNEL);
}

int AioDriver::descriptor(Operation operation, size_t slot)
{
    int fd = slots.get(slot);
    if (fd >= 0) return fd;
    if (must_be_character && !is_character_device(operation, path)) return -1;
    fd = open_slot(*this, uint32_t(slot));
    if (fd >= 0) slots.set(slot, fd);
    return fd;
}

int32_t AioDriver::descriptor_or_code(Operation operation, size_t slot)
{
    int fd = descriptor(operation, slot);
    return fd < 0 ? coded(MPP_ERR_REFUSED) : fd;
}

int32_t AioDriver::request(Operation operation, size_t slot, uint32_t code, void* argument)
{
    int fd = descriptor(operation, slot);
    return fd < 0 ? coded(MPP_ERR_REFUSED) : ioctl(fd, static_cast<unsigned long>(code), argument);
}

int32_t AioDriver::operate(Operation operation, int32_t device, int32_t channel, uint32_t code)
{
    if (int32_t refused = check(operation, device, channel)) return refused;
    return request(operation, slot_of(device, channel), code);
}

int32_t AioDriver::exchange(Operation operation, int32_t device, uint32_t code, AIO_ATTR_S* attr)
{
    if (int32_t refused = check(operation, device)) return refused;
    return attr ? request(operation, slot_of(device, 0), code, attr) : coded(MPP_ERR_NULL);
}

int32_t AioDriver::enable_resampling(Operation operation, int32_t device, int32_t channel,
                                     ResampleStage& stage, const AIO_RESAMPLE_ATTR_S& attr)
{
    AIO_ATTR_S current = {};
    Refusal refusal = Refusal::other_attributes;
    if (stage.enabled && stage.same(attr)) return 0;
    if (!stage.enabled && check_record(attr, refusal)) {
        if (request(operation, slot_of(device, 0), get_pub_attr, &current) != 0)
            refusal = Refusal::no_device;
        else if (check_device(device_is_output, attr, current, refusal)) {
            if (stage.enable(attr)) return 0;
            refusal = Refusal::no_memory;
        }
    }
    explain(operation, refusal, device, channel, attr, current);
    return coded(number_of(refusal));
}

bool ready_now(int fd, short event)
{
    pollfd wanted = {fd, event, 0};
    return poll(&wanted, 1, 0) == 1 && (wanted.revents & event);
}

} // namespace zep
