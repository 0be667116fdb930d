// Findings and header fields in words.
#pragma once

#include "upgrade/package.hpp"

#include <string>

namespace fwpkg {

// "marker at offset 0 (0x0): found "ABCD" (0x44434241), expected ..."
std::string describe(const zep::Finding& finding);

// The four characters of a marker, those that cannot be shown as \xNN.
std::string marker_text(uint32_t word);
std::string marker_bytes(uint32_t word); // as they are

// Text out of a file, fit for a terminal.
std::string printable(const std::string& text);

std::string hex(uint64_t value, int digits = 0);

const char* architecture_name(uint8_t code);
const char* type_name(uint8_t code);
const char* compression_name(uint8_t code);

} // namespace fwpkg
