// Text of a board, which may be broken or hostile, made fit to be shown.
#pragma once

#include <string>
#include <string_view>

namespace station {

// Valid UTF-8 that moves no cursor: a control character becomes "\x1B", a character that turns the direction
// of writing "\u202E", a byte that is no UTF-8 U+FFFD. CR LF is LF; LF and tab stay.
std::string harmless(std::string_view bytes);
// The same on one line, cut after `most` characters.
std::string harmless_line(std::string_view bytes, size_t most = 120);

// The first `most` characters; shorter text is filled with blanks to `fill`.
std::string clipped(const std::string& text, size_t most, size_t fill = 0);
// The last line that is not blank.
std::string last_line(const std::string& text);
// In HTML and XML, between tags and in an attribute.
std::string escaped(const std::string& text);
std::string seconds_text(double seconds); // "3.2"

} // namespace station
