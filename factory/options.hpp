// Command lines of the factory tests.
#pragma once

#include <cstdint>
#include <span>

namespace zep {

// One option that takes a number ("-t 10") or, without `value`, is a switch ("-n").
struct Option {
    const char* name;
    bool* flag;
    int64_t* value = nullptr;
    int64_t min = 0;
    int64_t max = 0;
};

// Takes every option from the arguments and puts the other words into `words`, at most `max_words`. False for an
// unknown option, a missing, malformed or out-of-range number, or too many words: one line on standard error
// names it, and `usage` follows there.
bool parse_options(int argc, char** argv, std::span<const Option> options, const char** words, int max_words,
                   const char* usage);

// Decimal, or hexadecimal with 0x; the whole text, within the range.
bool parse_number(const char* text, int64_t min, int64_t max, int64_t& value);

} // namespace zep
