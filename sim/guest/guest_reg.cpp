// reg: sets and clears bits of the chip's registers and shows them.
#include "sim/guest/guest.hpp"
#include "sim/guest/simlog.hpp"
#include "sim/base/text.hpp"
#include "sim/board/registers.hpp"

#include <cstdio>
#include <cstring>

namespace vcam {
namespace {

constexpr auto kUsage = "usage: reg -s ADDRESS MASK | reg -c ADDRESS MASK | reg -r ADDRESS\n";

} // namespace

int reg_main(int argc, char** argv)
{
    const std::string action = argc > 1 ? argv[1] : "";
    const bool read_only = action == "-r";
    if (argc != (read_only ? 3 : 4) || (!read_only && action != "-s" && action != "-c")) {
        fputs(kUsage, stderr);
        return 1;
    }
    const auto address = uint32_t(parse_size(argv[2], "reg"));
    int result = 0;
    if (read_only) {
        uint32_t value = 0;
        result = registers::read(address, value);
        if (result == 0) printf("0x%08X: 0x%08X\n", address, value);
    } else {
        const auto mask = uint32_t(parse_size(argv[3], "reg"));
        note_event("reg", join({argv + 1, argv + argc}, " "));
        result = action == "-s" ? registers::set_bits(address, mask) : registers::clear_bits(address, mask);
    }
    if (result < 0) fail("no access to register 0x%08X: %s", address, strerror(-result));
    return 0;
}

} // namespace vcam
