// The chip's registers: 32-bit words in the sparse file `registers`, each at its own address. The register
// tool and the drivers of all processes see the same words.
//
// In a GPIO bank the address says which lines an access to the data register means: bits 2 to 9 are the mask.
// Lines that the direction register (bank + 0x400) makes outputs read as they were written, inputs as
// their pins are. The file keeps what was written to the data register at bank + 0x3FC.
// Programs that map the registers see the file as it is: nobody computes there what an input has.
#pragma once

#include <cstdint>
#include <vector>

namespace vcam::registers {

// 0 or a negative errno number; -EINVAL for an address that is no multiple of four.
int read(uint32_t address, uint32_t& value);
int set_bits(uint32_t address, uint32_t bits);
int clear_bits(uint32_t address, uint32_t bits);

void power_on(); // all words are zero again
// Where camera.conf has memory=/dev/mem, registers are memory of the machine at their own addresses, the ones that
// programs map; at the end of a run the file gets the words and the machine's are zero.
void power_off();
// Before a program maps a stretch, which is whole pages however few bytes it asks for: registers that always
// read one word hold it in the file, too.
int settle(uint32_t first, uint64_t bytes);

struct Word {
    uint32_t address, value;
};
// A GPIO bank's registers from its address on: which lines are outputs, and what was written to them.
inline constexpr uint32_t kDirection = 0x400, kAllData = 0x3FC;

// Every word of the file that is not zero, in the order of addresses.
std::vector<Word> all();

} // namespace vcam::registers
