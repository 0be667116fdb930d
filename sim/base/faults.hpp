// The fault plan: what the simulated hardware does wrong, and when.
//
// One line a fault in the file `faults`:  <device or call> [<operation>[@<block>]] <skip or at=TIME> <times> <effect>
//   mtd1 write 3 1 EIO          the fourth write fails
//   mtd2 erase@5 0 -1 EIO       erase block 5 never erases
//   mtd1 read 0 1 flip          one bit of one read is wrong; of a write: does not come out
//   mtd3 write 100 1 powercut   the camera loses power inside the 101st write
//   umount 0 1 EBUSY            the next umount is refused
//   ai enable 0 1 0xA0158010    the next request gives a driver's own code
//   ai getframe 2 1 word9=5000  32-bit word 9 of the third record that comes back is another
//   mtd2 erase 0 -1 slow=800    each erase takes 800 ms more of camera time
//   mtd3 write 0 1 drop         a write says yes and does nothing
//   rename upgrade 1 1 EIO      the program's second call of the C library's rename fails
//   mtd1 write at=1.5s 2 EIO    the first two writes from camera second 1.5 on fail
//   hi3516_reg set 4 1 signal=TERM  SIGTERM comes before the fifth request
// times -1 is for ever. Effects: an errno name or number; a driver's code 0xA...; `wordN=VALUE` (of the
// record that a request gives back, as the program lays it out); `short` (half of it is done);
// `flip` (one bit); `slow=MS`; `drop`; `kill` (of a library call: the program, by SIGKILL, before it); `signal=NAME` (to the
// program, before the operation); `powercut` (inside the operation), `powercut-before`, `powercut-after`.
// A library call may name a program in the operation's place. '#' begins a comment. How often each line has
// matched is kept in `faults.state`, so that a count spans processes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vcam::faults {

enum class Kind : uint8_t {
    none,
    error,
    short_count,
    flip,
    word,
    slow,
    drop,
    kill,
    signal,
    cut_before,
    cut_inside,
    cut_after
};

struct Effect {
    Kind kind = Kind::none;
    int error = 0;                // for Kind::error: an errno number, or a driver's own code, negated as well
    uint32_t word = 0, value = 0; // for Kind::word; for Kind::slow milliseconds; for Kind::signal its number
    std::string line = {};        // of the plan
    explicit operator bool() const { return kind != Kind::none; }
};

// Counts one operation and says what the plan has for it. block -1: the operation has none. `now_ns` gives the camera time;
// it is called only for lines with at=.
Effect next(int64_t (*now_ns)(), std::string_view device, std::string_view operation = {},
            int64_t block = -1);

// An operation of a device, and which effects it can have.
struct Operation {
    std::string name;
    bool moves_bytes = false; // as a file: short and flip
    bool has_block = false;   // @block
    uint32_t record = 0;      // bytes of the record that it gives back: wordN
};

// What a line may name: a device with its operations, or a call.
struct Target {
    enum class Kind : uint8_t { device, command, library_call };
    std::string name;
    Kind kind = Kind::device;
    std::vector<Operation> operations = {}; // of a device
};
// Calls that the journal has, and calls of the C library on ordinary files.
inline constexpr const char* kCommands[] = {"mount", "settimeofday", "system", "umount"};
inline constexpr const char* kLibraryCalls[] = {"calloc", "fork",    "fsync",  "link",   "malloc", "open",
                                                "read",   "realloc", "rename", "strdup", "unlink", "write"};

// One of those that give memory.
bool is_allocation(std::string_view call);

// "" or what is wrong with a line of the plan, with the names that it could have. A line without a fault is right.
std::string check(const std::string& line, std::span<const Target> targets);
// The same for a whole plan: the first wrong line, in front of its reason.
std::string check_plan(const std::string& plan, std::span<const Target> targets);

// Whether a line is empty or a comment.
bool is_blank(std::string_view line);

// Whether the plan named the library call when this process first asked; forget_calls makes it ask again.
bool plans_call(std::string_view call);
void forget_calls();

// How far each line of the plan has come.
struct Progress {
    std::string line;
    int64_t matched = 0, hits = 0;
    int64_t left = 0; // -1: for ever
};
std::vector<Progress> progress();

} // namespace vcam::faults
