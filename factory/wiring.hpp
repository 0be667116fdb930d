// Which GPIO lines carry the board's digital inputs and outputs, LEDs and key.
#pragma once

#include <cstdint>
#include <span>

namespace zep {

struct GpioLine {
    int32_t group = 0;
    int32_t bit = 0;
    char name[16] = ""; // empty: none
};

constexpr size_t kMaxLines = 16;

struct LineList {
    GpioLine lines[kMaxLines] = {};
    size_t count = 0;

    [[nodiscard]] std::span<const GpioLine> all() const { return {lines, count}; }
};

struct Wiring {
    LineList outputs;
    LineList inputs;
    LineList leds;
    LineList key;           // at most one line
    int32_t key_active = 0; // level of the pressed key
};

// The wiring of this device's model, with what "/etc/factory_io.conf" says in its place. False when that file
// holds an unknown setting, or a value that is not allowed; one line on standard error and in the system log then
// says which, and in which line of the file.
bool load_wiring(Wiring& wiring);

// "5.0,5.1" or "power:9.0,status:9.1": groups 1 to 10, bits 0 to 7, names of at most 15 characters. False
// for anything else, or too many.
bool parse_lines(const char* text, LineList& list);

} // namespace zep
