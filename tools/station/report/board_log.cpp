// The line's log.
#include "tools/station/report/board_log.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOpen = ".open"; // behind the log's name and a process number
constexpr char kFresh = '~';           // behind that, while it is written
constexpr off_t kLookBack = 1 << 20;   // for a board that has its line already

std::string line_of(const Report& report)
{
    return report_json(report, false).dump(-1, ' ', false, cli::Json::error_handler_t::replace) + "\n";
}

[[noreturn]] void fail(const std::string& path) { throw std::runtime_error(path + ": " + strerror(errno)); }

void write_all(int fd, const std::string& bytes, const std::string& path)
{
    for (size_t at = 0; at < bytes.size();) {
        const ssize_t n = write(fd, bytes.data() + at, bytes.size() - at);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(path);
        at += size_t(n);
    }
    if (fsync(fd) < 0 && errno != EINVAL) fail(path);
}

// One station at a time, until the end of the scope.
class Turn {
public:
    Turn(int fd, const std::string& path) : fd_(fd)
    {
        while (flock(fd_, LOCK_EX) < 0)
            if (errno != EINTR) fail(path);
    }
    ~Turn() { flock(fd_, LOCK_UN); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    const int fd_;
};

std::string tail_of(int fd)
{
    const off_t size = lseek(fd, 0, SEEK_END), from = size > kLookBack ? size - kLookBack : 0;
    std::string bytes(size_t(size - from), '\0');
    const ssize_t n = pread(fd, bytes.data(), bytes.size(), from);
    bytes.resize(n > 0 ? size_t(n) : 0);
    return bytes;
}

std::string first_line(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string line;
    return std::getline(file, line) && !file.eof() ? line : "";
}

// LOG.PROCESS.open, or that with kFresh behind it.
bool is_ours(const std::string& name, const std::string& head)
{
    if (name.rfind(head, 0) != 0) return false;
    const size_t digits = name.find_first_not_of("0123456789", head.size());
    const std::string rest = digits == std::string::npos ? "" : name.substr(digits);
    return digits != head.size() && (rest == kOpen || rest == kOpen + std::string(1, kFresh));
}

// Of a whole line; a torn one is no JSON.
std::string id_of(const std::string& line)
{
    const cli::Json json = cli::Json::parse(line, nullptr, false);
    return json.is_object() && json.contains("id") && json["id"].is_string() ? json["id"] : "";
}

} // namespace

BoardLog::BoardLog(std::string path)
    : path_(std::move(path)), open_path_(path_ + "." + std::to_string(getpid()) + kOpen)
{
    log_.reset(open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    if (!log_) fail(path_);
    struct stat info = {};
    if (fstat(log_.get(), &info) < 0 || !S_ISREG(info.st_mode))
        throw std::runtime_error(path_ + ": is no regular file; a log has to keep what is appended");
    recover();
}

// The boards of stations that are gone: nobody holds the lock of their files. What is no record of ours stays.
void BoardLog::recover() const
{
    const Turn turn(log_.get(), path_);
    const fs::path folder = fs::path(path_).has_parent_path() ? fs::path(path_).parent_path() : fs::path(".");
    const std::string head = fs::path(path_).filename().string() + ".";
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (!is_ours(name, head) || !entry.is_regular_file(error)) continue;
        const zep::Fd file(open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
        if (!file) continue;
        const bool orphan = flock(file.get(), LOCK_EX | LOCK_NB) == 0;
        if (orphan && (name.back() == kFresh || take_over(entry.path().string())))
            unlink(entry.path().c_str());
    }
}

// False for a file that cannot be read. The crash may have come between the board's line and the end of its file.
bool BoardLog::take_over(const std::string& path) const
{
    const std::string id = id_of(first_line(path));
    if (id.empty()) return false;
    std::istringstream lines(tail_of(log_.get()));
    for (std::string line; std::getline(lines, line) && !lines.eof();)
        if (id_of(line) == id) return true;
    append(first_line(path) + "\n");
    return true;
}

void BoardLog::append(const std::string& line) const
{
    const off_t size = lseek(log_.get(), 0, SEEK_END);
    char last = '\n';
    if (size > 0 && pread(log_.get(), &last, 1, size - 1) != 1) fail(path_);
    write_all(log_.get(), last == '\n' ? line : "\n" + line, path_);
}

// No other station finds it unlocked.
zep::Fd BoardLog::open_locked(const std::string& path) const
{
    const Turn turn(log_.get(), path_);
    zep::Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file) fail(path);
    flock(file.get(), LOCK_EX);
    return file;
}

// Renamed into place: a crash leaves the state before or the one after.
void BoardLog::note(const Report& report)
{
    const std::string fresh = open_path_ + kFresh;
    zep::Fd file = open_locked(fresh);
    try {
        write_all(file.get(), line_of(report), fresh);
        if (rename(fresh.c_str(), open_path_.c_str()) < 0) fail(open_path_);
    } catch (...) {
        unlink(fresh.c_str());
        throw;
    }
    open_ = std::move(file);
}

void BoardLog::finish(const Report& report)
{
    {
        const Turn turn(log_.get(), path_);
        append(line_of(report));
    }
    unlink(open_path_.c_str());
}

} // namespace station
