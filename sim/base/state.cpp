// The camera's state folder and the hardware in camera.conf.
#include "sim/base/state.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/text.hpp"

#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

namespace vcam::state {
namespace {

std::string& folder()
{
    static std::string* text = [] {
        const char* set = ::getenv("VCAM_STATE");
        return new std::string(set ? set : ""); // never destroyed: late callers run during exit
    }();
    return *text;
}

} // namespace

const std::string& dir() { return folder(); }
void set_dir(const std::string& path) { folder() = path; }
std::string path(const std::string& name) { return dir() + "/" + name; }

std::string setting(const std::string& key, const std::string& fallback)
{
    for (const std::string& line : split(raw::read_text(path("camera.conf")), '\n'))
        if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=')
            return line.substr(key.size() + 1);
    return fallback;
}

bool parse_size(const std::string& text, uint32_t& value)
{
    uint64_t size = 0;
    if (!is_size(text, size) || size > UINT32_MAX) return false;
    value = uint32_t(size);
    return true;
}

Partition partition(uint32_t number)
{
    Partition p{.number = number, .bad_blocks = {}};
    const auto fields = split(setting("mtd" + std::to_string(number)), ',');
    if (fields.size() != 4 || !parse_size(fields[1], p.size) || !parse_size(fields[2], p.erase_size) ||
        !parse_size(fields[3], p.write_size))
        return {.number = number, .bad_blocks = {}};
    p.nand = fields[0] == "nand";
    std::istringstream bad(raw::read_text(p.image() + ".bad"));
    for (uint32_t block; bad >> block;) p.bad_blocks.push_back(block);
    return p;
}

bool complete_image(const Partition& p)
{
    const raw::Fd fd(raw::open(p.image().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!fd) return false;
    const std::vector<uint8_t> erased(65536, 0xFF);
    for (int64_t at = raw::seek(fd.get(), 0, SEEK_END); at < int64_t(p.size);) {
        const size_t size = std::min<size_t>(erased.size(), size_t(p.size - at));
        if (!raw::pwrite_all(fd.get(), erased.data(), size, at)) return false;
        at += int64_t(size);
    }
    return true;
}

} // namespace vcam::state
