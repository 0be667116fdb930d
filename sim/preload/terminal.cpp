// Interposers: terminal settings. The C library turns these calls into requests by itself, past ioctl.
#include "sim/models/model.hpp"
#include "sim/preload/real.hpp"
#include "sim/board/serial_line.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <termios.h>
#include <unistd.h>

using namespace vcam;

namespace {

constexpr uint32_t kGet = 0x5401, kSet = 0x5402, kBreak = 0x5409, kFlow = 0x540A, kFlush = 0x540B;

void* number(long value) { return reinterpret_cast<void*>(value); }

// The C library's record is longer than the kernel's.
int get_settings(Model& model, int fd, termios* out)
{
    serial::Settings s;
    if (device::ioctl(model, fd, kGet, &s) < 0) return -1;
    *out = {};
    out->c_iflag = s.iflag;
    out->c_oflag = s.oflag;
    out->c_cflag = s.cflag;
    out->c_lflag = s.lflag;
    out->c_line = s.discipline;
    std::copy_n(s.cc, sizeof s.cc, out->c_cc);
    out->c_ispeed = out->c_ospeed = s.cflag & (CBAUD | CBAUDEX);
    return 0;
}

int set_settings(Model& model, int fd, int how, const termios& in)
{
    if (how < TCSANOW || how > TCSAFLUSH) return refused(EINVAL);
    serial::Settings s = {in.c_iflag & 0x7FFFFFFF, in.c_oflag, in.c_cflag, in.c_lflag, in.c_line, {}};
    std::copy_n(in.c_cc, sizeof s.cc, s.cc);
    return device::ioctl(model, fd, kSet + uint32_t(how), &s);
}

} // namespace

VCAM_EXPORT int tcgetattr(int fd, termios* out) noexcept
{
    if (Model* model = device_of(fd)) return get_settings(*model, fd, out);
    return VCAM_NEXT(int(int, termios*), "tcgetattr")(fd, out);
}

VCAM_EXPORT int tcsetattr(int fd, int how, const termios* in) noexcept
{
    if (Model* model = device_of(fd)) return set_settings(*model, fd, how, *in);
    return VCAM_NEXT(int(int, int, const termios*), "tcsetattr")(fd, how, in);
}

VCAM_EXPORT int tcdrain(int fd)
{
    if (Model* model = device_of(fd)) return device::ioctl(*model, fd, kBreak, number(1));
    return VCAM_NEXT(int(int), "tcdrain")(fd);
}

VCAM_EXPORT int tcflush(int fd, int which) noexcept
{
    if (Model* model = device_of(fd)) return device::ioctl(*model, fd, kFlush, number(which));
    return VCAM_NEXT(int(int, int), "tcflush")(fd, which);
}

VCAM_EXPORT int tcflow(int fd, int what) noexcept
{
    if (Model* model = device_of(fd)) return device::ioctl(*model, fd, kFlow, number(what));
    return VCAM_NEXT(int(int, int), "tcflow")(fd, what);
}

VCAM_EXPORT int tcsendbreak(int fd, int length) noexcept
{
    if (Model* model = device_of(fd)) return device::ioctl(*model, fd, kBreak, number(0));
    return VCAM_NEXT(int(int, int), "tcsendbreak")(fd, length);
}

VCAM_EXPORT int isatty(int fd) noexcept
{
    Model* model = device_of(fd);
    if (!model) return VCAM_NEXT(int(int), "isatty")(fd);
    termios settings;
    return get_settings(*model, fd, &settings) == 0;
}
