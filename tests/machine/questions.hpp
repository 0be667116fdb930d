// Questions to drivers, one a line with its answer behind "->": on the emulated machine the kernel is asked, in the
// virtual camera its models.
//
//   open NAME PATH MODE        MODE: r, w or rw; +create opens as a file to be made, +now without waiting
//   dup NAME OTHER             OTHER becomes a name of the same opening
//   close NAME, sync NAME
//   seek NAME OFFSET FROM      FROM: set, cur or end
//   read NAME SIZE [OFFSET]    answers the number of bytes and the bytes: hexadecimal, "ff*512,00" for repeated ones
//   write NAME BYTES [OFFSET]  BYTES as read answers them, or "nothing"
//   ioctl NAME REQUEST WORD... answers the result and the words as they are then, each as it was written, in
//                              hexadecimal or not; WORD may be "nowhere", a null pointer
//
// A number may end in K or M. A failure is answered as "-1" and the name of the error.
#pragma once

#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace questions {

using Words = std::vector<std::string>;

// What only one side can be asked, such as to wait in camera time; nothing for words that it does not know. The
// descriptor is that of the name in the second word, -1 for none.
using Others = std::function<std::optional<std::string>(const Words&, int descriptor)>;

std::string text_of(const std::string& bytes);
int64_t number(const std::string& word);
std::string result(int64_t value); // with errno's name for a failure

// The lines with the answers that the drivers give; lines without "->" are copied.
std::string asked(std::istream& lines, const Others& others = {});

} // namespace questions
