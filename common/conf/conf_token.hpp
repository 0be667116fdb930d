// The tokens of a configuration line, bounded.
#pragma once

#include <cstddef>
#include <span>

namespace zep {

// A key or a value, found without copying it.
struct ConfToken {
    const char* next;           // cursor behind the token; null: the line holds no further token
    const char* text = nullptr; // null: none was taken, what the caller held before stays in force
    size_t length = 0;
};

// The token at `cursor`, a terminated text. CUTIL_GetConfToken documents the rules.
ConfToken conf_token(const char* cursor);

// Copies a taken token and terminates it, cut to the room there is; copies nothing if none was taken.
void conf_copy(const ConfToken& token, std::span<char> to);

// Reads the value behind a key: `value` becomes empty when the line ends there, and keeps its text when a
// comment or section mark follows. Returns the cursor behind it, null at the end of the line.
const char* conf_value(const char* cursor, std::span<char> value);

// A key's cursor that stands here ends the line: a comment, or a section header.
inline bool conf_ends_line(const char* cursor) { return *cursor == '#' || *cursor == '['; }

} // namespace zep
