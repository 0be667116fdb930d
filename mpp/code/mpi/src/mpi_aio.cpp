// What audio input and output share.
#include "mpi/src/mpi_aio.hpp"

#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace zep {

namespace {

using Process = int (*)(RESAMPLER_S*, const int16_t*, int, int16_t*);

struct Kind {
    uint32_t up;
    uint32_t down;
    Process process;
};
constexpr Kind kKinds[] = {
    {1, 1, nullptr}, // there is no kind 0
    {2, 1, ResamplerMono1X2Process},
    {1, 2, ResamplerMono2X1Process},
    {4, 1, ResamplerMono1X4Process},
    {1, 4, ResamplerMono4X1Process},
    {6, 1, ResamplerMono1X6Process},
    {1, 6, ResamplerMono6X1Process},
};

} // namespace

uint32_t scale_by_kind(uint32_t kind, uint32_t value)
{
    return valid_kind(kind) ? value * kKinds[kind].up / kKinds[kind].down : value;
}

int resample(uint32_t kind, RESAMPLER_S* resampler, const int16_t* in, uint32_t points, int16_t* out)
{
    return valid_kind(kind) ? kKinds[kind].process(resampler, in, int(points), out) : -1;
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
    enabled = true;
    return true;
}

void ResampleStage::disable()
{
    ResamplerDestroy(handle);
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
