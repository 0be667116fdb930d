// The account file: a change of one hash touches nothing else, and a file that cannot be copied stays.
#include "common/users/passwd_file.hpp"
#include "fuzz/fuzz_file.hpp"

#include <cstring>
#include <fstream>
#include <iterator>

namespace {

constexpr zep::NewHash kChange = {"u", "abNANd1rDfiNc", ":65534:65534:u:/home:/bin/false"};

std::string folder()
{
    static const std::string made = [] {
        char name[] = "/dev/shm/zep-fuzz.XXXXXX";
        must(mkdtemp(name) != nullptr);
        return std::string(name);
    }();
    return made;
}

std::string read_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The file after the change; empty where it must be refused.
std::string expected(const std::string& content)
{
    std::string out;
    bool found = false;
    for (size_t at = 0; at < content.size();) {
        size_t feed = content.find('\n', at);
        std::string line = content.substr(at, feed == std::string::npos ? feed : feed - at);
        at += line.size() + 1;
        if (line.size() >= zep::kAccountLine - 1) return "";
        if (line.compare(0, 2, "u:") == 0) {
            found = true;
            line = "u:" + std::string(kChange.hash) + line.substr(std::min(line.size(), line.find(':', 2)));
        }
        out += line + "\n";
    }
    return found ? out : out + "u:" + kChange.hash + kChange.rest + "\n";
}

void check_superuser(const std::string& path, const std::string& after)
{
    char before_name[zep::kAccountName], after_name[zep::kAccountName];
    std::string changed = folder() + "/after";
    std::ofstream(changed, std::ios::binary) << after;
    if (!zep::find_superuser(path.c_str(), before_name)) return;
    must(zep::find_superuser(changed.c_str(), after_name) && strcmp(before_name, after_name) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string path = folder() + "/passwd", content(reinterpret_cast<const char*>(data), size);
    if (content.find('\0') != std::string::npos) return 0; // text only: what is behind a NUL is not looked at
    std::ofstream(path, std::ios::binary) << content;
    std::string wanted = expected(content);
    must(zep::set_hash(path.c_str(), (folder() + "/npasswd").c_str(), kChange) == !wanted.empty());
    std::string after = read_file(path);
    must(after == (wanted.empty() ? content : wanted));
    if (!wanted.empty()) {
        char line[zep::kAccountLine];
        const char* hash = zep::find_hash(path.c_str(), kChange.user, line);
        must(hash && strcmp(hash, kChange.hash) == 0);
        std::ofstream(path, std::ios::binary) << content;
        check_superuser(path, after);
    }
    must(unlink(path.c_str()) == 0);
    return 0;
}
