#include "tests/machine/questions.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <linux/fs.h>
#include <linux/watchdog.h>
#include <map>
#include <mtd/mtd-user.h>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace questions {
namespace {

using Descriptors = std::map<std::string, int>;

// What the drivers' answers are called; not every C library knows the names.
std::string name_of(int error)
{
    static const std::pair<int, const char*> names[] = {
        {EPERM, "EPERM"},           {ENOENT, "ENOENT"}, {EIO, "EIO"},
        {ENXIO, "ENXIO"},           {EBADF, "EBADF"},   {EAGAIN, "EAGAIN"},
        {ENOMEM, "ENOMEM"},         {EACCES, "EACCES"}, {EFAULT, "EFAULT"},
        {EBUSY, "EBUSY"},           {ENODEV, "ENODEV"}, {EINVAL, "EINVAL"},
        {ENOTTY, "ENOTTY"},         {EFBIG, "EFBIG"},   {ENOSPC, "ENOSPC"},
        {ESPIPE, "ESPIPE"},         {EROFS, "EROFS"},   {EUCLEAN, "EUCLEAN"},
        {EOPNOTSUPP, "EOPNOTSUPP"},
    };
    for (const auto& [number, name] : names)
        if (number == error) return name;
    return strerror(error);
}

struct Request {
    const char* name;
    unsigned long number;
    size_t width; // of its words, in bytes
};
constexpr Request kRequests[] = {
    {"MEMGETINFO", MEMGETINFO, 4},
    {"MEMERASE", MEMERASE, 4},
    {"MEMERASE64", MEMERASE64, 8},
    {"MEMGETBADBLOCK", MEMGETBADBLOCK, 8},
    {"MEMSETBADBLOCK", MEMSETBADBLOCK, 8},
    {"BLKGETSIZE64", BLKGETSIZE64, 8},
    {"WDIOC_SETTIMEOUT", WDIOC_SETTIMEOUT, 4},
    {"WDIOC_GETTIMEOUT", WDIOC_GETTIMEOUT, 4},
    {"WDIOC_GETSUPPORT", WDIOC_GETSUPPORT, 4},
    {"WDIOC_GETSTATUS", WDIOC_GETSTATUS, 4},
    {"WDIOC_GETBOOTSTATUS", WDIOC_GETBOOTSTATUS, 4},
    {"WDIOC_KEEPALIVE", WDIOC_KEEPALIVE, 4},
    {"WDIOC_GETTEMP", WDIOC_GETTEMP, 4},
};

Request request_of(const std::string& word)
{
    for (const Request& request : kRequests)
        if (word == request.name) return request;
    return {"", static_cast<unsigned long>(number(word)), 4};
}

std::string bytes_of(const std::string& text)
{
    std::string bytes;
    std::istringstream in(text == "nothing" ? "" : text);
    for (std::string run; std::getline(in, run, ',');) {
        const size_t star = run.find('*');
        const size_t count = star == std::string::npos ? 1 : size_t(number(run.substr(star + 1)));
        bytes.append(count, char(std::stoi(run, nullptr, 16)));
    }
    return bytes;
}

int flags_of(const std::string& mode)
{
    const auto has = [&](const char* word) { return mode.find(word) != std::string::npos; };
    return (has("rw")  ? O_RDWR
            : has("w") ? O_WRONLY
                       : O_RDONLY) |
           (has("+create") ? O_CREAT | O_TRUNC | O_APPEND : 0) | (has("+now") ? O_NONBLOCK | O_NOCTTY : 0);
}

std::string opened(int& name, int fd)
{
    if (fd >= 0) name = fd;
    return result(fd < 0 ? -1 : 0);
}

std::string read(int fd, const Words& words)
{
    std::string bytes(size_t(number(words[2])), '\x77');
    const ssize_t n = words.size() > 3 ? ::pread(fd, bytes.data(), bytes.size(), number(words[3]))
                                       : ::read(fd, bytes.data(), bytes.size());
    const std::string answer = result(n);
    return n <= 0 ? answer : answer + " " + text_of(bytes.substr(0, size_t(n)));
}

std::string write(int fd, const Words& words)
{
    const std::string bytes = bytes_of(words[2]);
    return result(words.size() > 3 ? ::pwrite(fd, bytes.data(), bytes.size(), number(words[3]))
                                   : ::write(fd, bytes.data(), bytes.size()));
}

std::string request(int fd, const Words& words)
{
    const auto [name, code, width] = request_of(words[2]);
    if (words.size() == 4 && words[3] == "nowhere") return result(::ioctl(fd, code, nullptr));
    alignas(int64_t) char record[256] = {};
    const size_t count = words.size() - 3;
    for (size_t i = 0; i < count; ++i) {
        const int64_t value = number(words[3 + i]);
        memcpy(record + i * width, &value, width); // little-endian
    }
    std::string answer = result(::ioctl(fd, code, record));
    for (size_t i = 0; i < count; ++i) {
        int64_t wide = 0;
        memcpy(&wide, record + i * width, width);
        const bool hexadecimal = words[3 + i].starts_with("0x");
        char word[24];
        snprintf(word, sizeof word, hexadecimal ? " 0x%llX" : " %lld",
                 static_cast<long long>(hexadecimal || width == 8 ? wide : int32_t(wide)));
        answer += word;
    }
    return answer;
}

std::string seek(int fd, const Words& words)
{
    const int from = words[3] == "set" ? SEEK_SET : words[3] == "cur" ? SEEK_CUR : SEEK_END;
    return result(::lseek(fd, off_t(number(words[2])), from));
}

std::string answer(const Words& words, Descriptors& descriptors, const Others& others)
{
    const std::string& what = words[0];
    int& fd = descriptors.try_emplace(words.size() > 1 ? words[1] : "", -1).first->second;
    if (others)
        if (const auto own = others(words, fd)) return *own;
    if (what == "open") return opened(fd, ::open(words[2].c_str(), flags_of(words[3]), 0666));
    if (what == "dup") return opened(descriptors[words[2]], ::dup(fd));
    if (what == "close") return result(::close(std::exchange(fd, -1)));
    if (what == "sync") return result(::fsync(fd));
    if (what == "seek") return seek(fd, words);
    if (what == "read") return read(fd, words);
    if (what == "write") return write(fd, words);
    if (what == "ioctl") return request(fd, words);
    return "no such question";
}

} // namespace

int64_t number(const std::string& word)
{
    size_t end = 0;
    const int64_t value = std::stoll(word, &end, 0);
    return word[end] == 'K' ? value * 1024 : word[end] == 'M' ? value * 1024 * 1024 : value;
}

std::string text_of(const std::string& bytes)
{
    std::string text;
    for (size_t at = 0, end; at < bytes.size(); at = end) {
        end = std::min(bytes.find_first_not_of(bytes[at], at), bytes.size());
        char run[24];
        snprintf(run, sizeof run, end - at > 1 ? "%02x*%zu" : "%02x", unsigned(uint8_t(bytes[at])), end - at);
        text += (at ? "," : "") + std::string(run);
    }
    return text;
}

std::string result(int64_t value) { return std::to_string(value) + (value < 0 ? " " + name_of(errno) : ""); }

std::string asked(std::istream& lines, const Others& others)
{
    std::string all;
    Descriptors descriptors;
    for (std::string line; std::getline(lines, line); all += line + "\n") {
        const size_t arrow = line.find(" ->");
        if (arrow == std::string::npos) continue;
        line.resize(arrow);
        std::istringstream in(line);
        const Words words{std::istream_iterator<std::string>(in), {}};
        const std::string said = answer(words, descriptors, others);
        line += " ->" + (said.empty() ? "" : " " + said);
    }
    for (const auto& [name, fd] : descriptors)
        if (fd >= 0) ::close(fd);
    return all;
}

} // namespace questions
