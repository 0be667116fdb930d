// reg: sets and clears bits of the chip's registers, one sparse file that is indexed by address.
#include "sim/box/guest.hpp"
#include "sim/box/simlog.hpp"
#include "sim/box/text.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr auto kUsage = "usage: reg -s ADDRESS MASK | reg -c ADDRESS MASK | reg -r ADDRESS\n";

// The chip's words are little-endian, like every machine that this runs on.
uint32_t load(int fd, uint32_t address)
{
    uint32_t value = 0;
    if (pread(fd, &value, sizeof value, off_t(address)) < 0)
        fail("cannot read register 0x%08X: %s", address, strerror(errno));
    return value;
}

void store(int fd, uint32_t address, uint32_t value)
{
    if (pwrite(fd, &value, sizeof value, off_t(address)) != ssize_t(sizeof value))
        fail("cannot write register 0x%08X: %s", address, strerror(errno));
}

} // namespace

int reg_main(int argc, char** argv)
{
    const std::string action = argc > 1 ? argv[1] : "";
    const bool read_only = action == "-r";
    if (argc != (read_only ? 3 : 4) || (!read_only && action != "-s" && action != "-c")) {
        fputs(kUsage, stderr);
        return 1;
    }
    auto address = uint32_t(parse_size(argv[2], "reg"));
    Fd fd(open((std::string(kStateInside) + "/registers").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!fd) fail("no register file: %s", strerror(errno));
    uint32_t value = load(fd.get(), address);
    if (read_only) {
        printf("0x%08X: 0x%08X\n", address, value);
        return 0;
    }
    auto mask = uint32_t(parse_size(argv[3], "reg"));
    note_event("reg", join({argv + 1, argv + argc}, " "));
    store(fd.get(), address, action == "-s" ? value | mask : value & ~mask);
    return 0;
}

} // namespace vcam
