// The fault plan: what the simulated hardware does wrong, and when.
//
// One line a fault in the file `faults`:  <device or call> [<operation>[@<block>]] <skip> <times> <effect>
//   mtd1 write 3 1 EIO          the fourth write fails
//   mtd2 erase@5 0 -1 EIO       erase block 5 never erases
//   mtd1 read 0 1 flip          one bit of one read is wrong; of a write: does not come out
//   mtd3 write 100 1 powercut   the camera loses power inside the 101st write
//   umount 0 1 EBUSY            the next umount is refused
//   ai enable 0 1 0xA0158010    the next request gives a driver's own code
//   ai getframe 2 1 word9=5000  32-bit word 9 of the third record that comes back is another
// times -1 is for ever. Effects: an errno name or number; a driver's code 0xA...; `wordN=VALUE` (of the
// record that a request gives back, as the program lays it out); `short` (half of it is done);
// `flip` (one bit); `powercut` (inside the operation), `powercut-before`, `powercut-after`. '#' begins a
// comment. How often each line has matched is kept in `faults.state`, so that a count spans processes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vcam::faults {

enum class Kind : uint8_t { none, error, short_count, flip, word, cut_before, cut_inside, cut_after };

struct Effect {
    Kind kind = Kind::none;
    int error = 0;                // for Kind::error: an errno number, or a driver's own code, negated as well
    uint32_t word = 0, value = 0; // for Kind::word
    explicit operator bool() const { return kind != Kind::none; }
};

// Counts one operation and says what the plan has for it. block -1: the operation has none.
Effect next(std::string_view device, std::string_view operation = {}, int64_t block = -1);

// "" or what is wrong with a line of the plan.
std::string check(const std::string& line);

} // namespace vcam::faults
