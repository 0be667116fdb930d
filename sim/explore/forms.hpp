// The forms in which an operation on the flash is left when the power fails inside it.
#pragma once

#include "sim/explore/flash_state.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vcam::explore {

enum class Form : uint8_t { before, first_byte, half, all_but_one, bits_1, bits_2, after };

// In the order of time; erase and mark bad have fewer.
std::vector<Form> forms_of(flash::Kind kind);
const char* name_of(Form form);  // "half", as in a point's name
const char* words_of(Form form); // "when half of it was done"
std::optional<Form> form_named(const std::string& name);

// What stands in the operation's stretch when it breaks off so. `seed` decides the drawn bits.
struct Torn {
    uint32_t offset; // a replace tears the whole erase blocks that it touches
    Bytes bytes;
};
Torn torn(const Bytes& now, uint64_t erase_size, const Operation& operation, Form form, uint64_t seed);
// The same after the first bytes_done bytes, in rising order; a larger number than the operation has means all of them.
Torn torn(const Bytes& now, uint64_t erase_size, const Operation& operation, size_t bytes_done);

} // namespace vcam::explore
