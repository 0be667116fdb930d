// The sizes of a camera's flash partitions.
#include "tools/fwpkg/partitions.hpp"

#include "tools/fwpkg/file.hpp"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fwpkg {
namespace {

// "3M", "512K", "0x10000" or plain bytes; -1 for anything else.
int64_t size_of(const std::string& text)
{
    char* end = nullptr;
    errno = 0;
    const long long value = strtoll(text.c_str(), &end, 0);
    const int shift = *end == 'K' ? 10 : *end == 'M' ? 20 : 0;
    const bool whole = end != text.c_str() && !end[shift ? 1 : 0] && !errno;
    return whole && value > 0 && value < (1LL << 40) ? value << shift : -1;
}

Flash flash_of(const std::string& file, const std::string& line, const std::string& value)
{
    const size_t first = value.find(',');
    if (first == std::string::npos) {
        const Flash flash{.size = size_of(value)};
        if (flash.size < 0) fail(file, ("'" + line + "' names no size; write mtd1=3M").c_str());
        return flash;
    }
    const size_t second = value.find(',', first + 1), third = value.find(',', second + 1);
    const Flash flash{size_of(value.substr(first + 1, second - first - 1)),
                      size_of(value.substr(second + 1, third - second - 1)), value.rfind("nand,", 0) == 0};
    if (second == std::string::npos || flash.size < 0 || flash.erase_size < 0)
        fail(file, ("'" + line + "' is not mtdN=TYPE,SIZE,ERASE_SIZE,WRITE_SIZE").c_str());
    return flash;
}

} // namespace

Partitions read_partitions(const std::string& path)
{
    const std::string file = std::filesystem::is_directory(path) ? path + "/camera.conf" : path;
    if (std::filesystem::exists(file) && !std::filesystem::is_regular_file(file))
        fail(file, "is not a regular file");
    std::ifstream in(file);
    if (!in) fail(file);
    Partitions found;
    for (std::string line; std::getline(in, line);)
        if (line.size() > 5 && line.rfind("mtd", 0) == 0 && line[3] >= '1' && line[3] <= '3' &&
            line[4] == '=')
            found[size_t(line[3] - '1')] = flash_of(file, line, line.substr(5));
    for (size_t i = 0; i < found.size(); ++i)
        if (!found[i].size) fail(file, ("no line mtd" + std::to_string(i + 1) + "=SIZE").c_str());
    return found;
}

} // namespace fwpkg
