// What audio input and output share.
#include "mpi/src/mpi_aio.hpp"

#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
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

int open_slot(const char* device, uint32_t request, uint32_t slot)
{
    int fd = open(device, O_RDWR | O_CLOEXEC);
    if (fd < 0) return -1;
    if (ioctl(fd, static_cast<unsigned long>(request), &slot) == 0) return fd;
    close(fd);
    return -1;
}

bool ready_now(int fd, short event)
{
    pollfd wanted = {fd, event, 0};
    return poll(&wanted, 1, 0) == 1 && (wanted.revents & event);
}

} // namespace zep
