// Rewriting of configuration files: the setting is there once, every line that does not match stays.
#include "common/cutil_conf.h"
#include "fuzz/fuzz_file.hpp"

#include <fstream>
#include <iterator>
#include <stdlib.h>

namespace {

// What the rewrite must come to, for files whose lines are shorter than the writer's buffer.
std::string expected(const std::string& content)
{
    std::string out;
    bool found = false;
    for (size_t at = 0; at < content.size();) {
        size_t feed = content.find('\n', at);
        std::string line = content.substr(at, feed == std::string::npos ? feed : feed - at + 1);
        at += line.size();
        bool match = line.compare(0, 3, "key") == 0;
        out += match ? "key=v\n" : line;
        found = found || match;
    }
    if (found) return out;
    if (!out.empty() && out.back() != '\n') out += '\n';
    return out + "key=v\n";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string folder = [] {
        char name[] = "/dev/shm/zep-fuzz.XXXXXX";
        must(mkdtemp(name) != nullptr);
        return std::string(name);
    }();
    std::string path = folder + "/conf", content(reinterpret_cast<const char*>(data), size);
    std::ofstream(path, std::ios::binary) << content;
    must(CUTIL_SetFileValue(path.c_str(), (folder + "/temp").c_str(), "key", "v") == 0);
    std::ifstream file(path, std::ios::binary);
    must(std::string(std::istreambuf_iterator<char>(file), {}) == expected(content));
    must(unlink(path.c_str()) == 0);
    return 0;
}
