// What the values of a new camera may be.
#include "sim/vcam/new_values.hpp"
#include "sim/base/text.hpp"
#include "sim/models/table.hpp"
#include "tools/cli/command_line.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cstdint>

namespace vcam {
namespace {

constexpr size_t kLongestVariable = 255; // the firmware's own limit
constexpr uint64_t kLeastPage = 512, kMostPage = 8192;

bool all_of(const std::string& text, int (*is)(int))
{
    return std::all_of(text.begin(), text.end(), [is](unsigned char c) { return is(c) != 0; });
}

const std::string& power_of_two(const std::string& size, uint64_t low, uint64_t high)
{
    uint64_t bytes = 0;
    try {
        bytes = parse_size(size, "");
    } catch (const Error&) { // said below, with what would be right
    }
    if (bytes < low || bytes > high || bytes & (bytes - 1))
        fail("give a power of two from %s to %s", human_size(low).c_str(), human_size(high).c_str());
    return size;
}

} // namespace

const std::string& check_model(const std::string& code)
{
    const bool form = code.size() == 5 && starts_with(code, "ZM1") && all_of(code.substr(3), isdigit);
    if (!form || code < kFirstModel || code > kLastModel)
        fail("give a model from %s to %s", kFirstModel, kLastModel);
    return code;
}

const std::string& check_mac(const std::string& address)
{
    const auto bytes = split(address, ':');
    const bool form =
        bytes.size() == 6 && std::all_of(bytes.begin(), bytes.end(), [](const std::string& byte) {
            return byte.size() == 2 && all_of(byte, isxdigit);
        });
    if (!form) fail("write it as 02:1A:2B:00:00:01");
    if (std::stoi(bytes[0], nullptr, 16) & 1)
        fail("is a group's address; the first byte of a camera's is even");
    if (address == "00:00:00:00:00:00") fail("is no camera's address; write it as 02:1A:2B:00:00:01");
    return address;
}

const std::string& check_address(const std::string& ip)
{
    in_addr parsed;
    if (inet_pton(AF_INET, ip.c_str(), &parsed) != 1) fail("write it as 192.168.10.20");
    const uint32_t first = ntohl(parsed.s_addr) >> 24;
    if (first == 0 || first == 127 || first >= 224)
        fail("is no host's address; give 1.0.0.0 to 223.255.255.255");
    return ip;
}

const std::string& check_marker(const std::string& text)
{
    if (text.size() != 4 || !all_of(text, isgraph)) fail("give four printable characters without blanks");
    return text;
}

const std::string& check_variable(const std::string& text)
{
    if (text.empty() || text.size() > kLongestVariable || !all_of(text, isprint))
        fail("give 1 to %zu printable characters", kLongestVariable);
    return text;
}

const std::string& check_driver(const std::string& words)
{
    const auto parts = split(words, '=');
    if (parts.size() != 2 || parts[1].empty() ||
        parts[1].find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") !=
            std::string::npos)
        fail("write it as ds1339=ds_1339");
    return words;
}

void check_driver_device(const std::string& words, const std::vector<std::string>& own)
{
    const std::string device = split(words, '=')[0];
    std::vector<std::string> names;
    for (const Model* model : models::built_in()) names.emplace_back(model->name);
    names.insert(names.end(), own.begin(), own.end());
    if (std::find(names.begin(), names.end(), device) == names.end())
        throw cli::WrongUse(text("--driver %s: there is no device %s; there are %s", words.c_str(),
                                 device.c_str(), join(names, ", ").c_str()));
}

const std::string& check_erase_block(const std::string& size)
{
    return power_of_two(size, kLeastEraseBlock, kMostEraseBlock);
}

const std::string& check_page(const std::string& size) { return power_of_two(size, kLeastPage, kMostPage); }

} // namespace vcam
