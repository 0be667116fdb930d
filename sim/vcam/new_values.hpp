// What the values of a new camera may be. Each returns its text, or throws with the range or the list.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vcam {

constexpr const char *kFirstModel = "ZM101",
                     *kLastModel = "ZM154"; // a code outside takes the default model's drivers
constexpr uint64_t kLeastEraseBlock = 8192, kMostEraseBlock = 1 << 20; // a JFFS2 node needs more than 4 KiB

const std::string& check_model(const std::string& code);  // kFirstModel to kLastModel
const std::string& check_mac(const std::string& address); // of one interface, no group's
const std::string& check_address(const std::string& ip);  // that a camera can have
const std::string& check_marker(const std::string& text); // four characters, as packages have
const std::string&
check_variable(const std::string& text); // value of a boot variable that the firmware can read
const std::string& check_driver(const std::string& words); // DEVICE=MODULE
// The device is one of the camera's or of those of one's own. Throws a wrong use.
void check_driver_device(const std::string& words, const std::vector<std::string>& own);
// A power of two within what chips have.
const std::string& check_erase_block(const std::string& size);
const std::string& check_page(const std::string& size);

} // namespace vcam
