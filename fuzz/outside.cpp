// What lies outside a parser while it is tried.
#include "fuzz/outside.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kFirst = 1000; // this program has fewer descriptors
constexpr size_t kEraseBlock = 65536, kNodeHead = 12;
constexpr char kSocket[] = "socket";

struct Node {
    std::string path, bytes; // kept between tries for their memory
    size_t sparse = SIZE_MAX;
    enum Kind { none, file, ends, silent } kind = none;

    [[nodiscard]] bool flows() const { return kind == ends || kind == silent; }
    // Bytes from `at` on that lie side by side.
    [[nodiscard]] std::string_view from(size_t at) const
    {
        const std::string_view all = bytes;
        if (at < sparse) return all.substr(std::min(at, all.size()));
        const size_t within = (at - sparse) % kEraseBlock, block = (at - sparse) / kEraseBlock;
        const size_t begin = sparse + block * kNodeHead + within;
        return within < kNodeHead && begin < all.size() ? all.substr(begin, kNodeHead - within) : "";
    }
};

struct {
    bool active = false;
    std::array<Node, 8> nodes;
    struct {
        Node* node;
        size_t at;
    } open[8] = {};
    int64_t now_us = 0;
    size_t entry = 0; // of the folder that is listed
    std::string sent;
} state;

Node* find(std::string_view path)
{
    for (Node& node : state.nodes)
        if (node.kind != Node::none && node.path == path) return &node;
    return nullptr;
}

Node& make(std::string_view path, std::string_view bytes, Node::Kind kind)
{
    Node* node = find(path);
    for (Node& free : state.nodes)
        if (!node && free.kind == Node::none) node = &free;
    must(node);
    node->path = path;
    node->bytes = bytes;
    node->sparse = SIZE_MAX;
    node->kind = kind;
    return *node;
}

int failed(int error)
{
    errno = error;
    return -1;
}

int open_node(Node* node)
{
    if (!node) return failed(ENOENT);
    for (auto& place : state.open) {
        if (place.node) continue;
        place = {node, 0};
        return kFirst + int(&place - state.open);
    }
    return failed(EMFILE);
}

// Null for a descriptor of the system's.
auto* place_of(int fd)
{
    const size_t index = size_t(fd) - kFirst;
    return state.active && fd >= kFirst && index < std::size(state.open) && state.open[index].node
               ? &state.open[index]
               : nullptr;
}

ssize_t take(int fd, void* to, size_t size)
{
    auto* place = place_of(fd);
    if (!place) return failed(EBADF);
    const std::string_view bytes = place->node->from(place->at);
    if (bytes.empty() && size && place->node->kind == Node::silent) return failed(EAGAIN);
    const size_t taken = std::min(size, bytes.size());
    memcpy(to, bytes.data(), taken);
    place->at += taken;
    return ssize_t(taken);
}

ssize_t put(int fd, const void* from, size_t size)
{
    auto* place = place_of(fd);
    if (!place) return failed(EBADF);
    const bool flows = place->node->flows();
    (flows ? state.sent : place->node->bytes).append(static_cast<const char*>(from), size);
    if (!flows) place->at += size;
    return ssize_t(size);
}

bool readable(int fd)
{
    const auto* place = place_of(fd);
    return place && (place->node->kind != Node::silent || !place->node->from(place->at).empty());
}

// A wait for nothing lasts a second at least, so that no limit costs many waits.
int pass_time(int64_t us) { return state.now_us += std::max<int64_t>(us, 1'000'000), 0; }

int status(const Node* node, struct stat64* info)
{
    if (!node) return failed(ENOENT);
    *info = {};
    info->st_dev = 1;
    info->st_ino = ino_t(node - state.nodes.data()) + 1;
    info->st_mode = (node->flows() ? S_IFCHR : S_IFREG) | 0644;
    info->st_size = off_t(node->bytes.size());
    return 0;
}

} // namespace

Outside::Outside()
{
    for (Node& node : state.nodes) node.kind = Node::none;
    state.now_us = 1'700'000'000'000'000;
    state.entry = 0;
    state.sent.clear();
    state.active = true;
}

Outside::~Outside()
{
    state.active = false;
    for (auto& place : state.open) must(!place.node);
}

void Outside::file(std::string_view path, std::string_view bytes, size_t sparse)
{
    make(path, bytes, Node::file).sparse = sparse;
}

std::string_view Outside::read(std::string_view path) const
{
    const Node* node = find(path);
    return node ? node->bytes : std::string_view();
}

int Outside::open(std::string_view path) const { return open_node(find(path)); }

void Outside::device(std::string_view path, std::string_view bytes, bool ends)
{
    make(path, bytes, ends ? Node::ends : Node::silent);
}

int Outside::connection(std::string_view bytes, bool ends)
{
    device(kSocket, bytes, ends);
    return open(kSocket);
}

const std::string& Outside::sent() const { return state.sent; }

// The fuzzer calls some of these itself: outside a try they are the system's.
#define PASS(name, ...)                                                                                      \
    if (!state.active) return __real_##name(__VA_ARGS__)
extern "C" {
// clang-format off
#define REAL(name) decltype(name) __real_##name;
REAL(read) REAL(write) REAL(close) REAL(rename) REAL(unlink) REAL(opendir) REAL(readdir64) REAL(closedir) REAL(clock_gettime)
REAL(sigaction)
    // clang-format on

    int __wrap_open64(const char* path, int flags, ...)
{
    Node* there = find(path);
    if (there && (flags & O_EXCL)) return failed(EEXIST);
    return open_node(there || !(flags & O_CREAT) ? there : &make(path, "", Node::file));
}
ssize_t __wrap_read(int fd, void* to, size_t size)
{
    PASS(read, fd, to, size);
    return take(fd, to, size);
}
ssize_t __wrap_pread64(int fd, void* to, size_t size, off64_t at)
{
    auto* place = place_of(fd);
    if (!place) return failed(EBADF);
    const size_t before = std::exchange(place->at, size_t(at));
    const ssize_t taken = take(fd, to, size);
    place->at = before;
    return taken;
}
ssize_t __wrap_write(int fd, const void* from, size_t size)
{
    PASS(write, fd, from, size);
    return put(fd, from, size);
}
int __wrap_close(int fd)
{
    PASS(close, fd);
    auto* place = place_of(fd);
    if (!place) return failed(EBADF);
    place->node = nullptr;
    return 0;
}
off64_t __wrap_lseek64(int fd, off64_t offset, int)
{
    auto* place = place_of(fd);
    if (!place || offset < 0) return failed(EINVAL);
    if (!place->node->flows()) place->at = size_t(offset);
    return offset;
}
int __wrap_fstat64(int fd, struct stat64* info)
{
    const auto* place = place_of(fd);
    return place ? status(place->node, info) : failed(EBADF);
}
int __wrap_lstat64(const char* path, struct stat64* info) { return status(find(path), info); }
int __wrap_rename(const char* from, const char* to)
{
    PASS(rename, from, to);
    Node *moved = find(from), *gone = find(to);
    if (!moved) return failed(ENOENT);
    if (gone) gone->path.clear(); // whoever has it open keeps it
    moved->path = to;
    return 0;
}
int __wrap_unlink(const char* path)
{
    PASS(unlink, path);
    Node* node = find(path);
    if (!node) return failed(ENOENT);
    node->path.clear();
    return 0;
}
// The only folder is /proc; its entries are the files' first names below it.
DIR* __wrap_opendir(const char* path)
{
    PASS(opendir, path);
    state.entry = 0;
    return reinterpret_cast<DIR*>(&state);
}
struct dirent64* __wrap_readdir64(DIR* folder)
{
    PASS(readdir64, folder);
    static struct dirent64 entry;
    while (state.entry < state.nodes.size()) {
        const Node& node = state.nodes[state.entry++];
        if (node.kind != Node::file || !node.path.starts_with("/proc/")) continue;
        const std::string name = node.path.substr(6, node.path.find('/', 6) - 6);
        snprintf(entry.d_name, sizeof entry.d_name, "%s", name.c_str());
        return &entry;
    }
    return nullptr;
}
int __wrap_closedir(DIR* folder)
{
    PASS(closedir, folder);
    return 0;
}

int __wrap_poll(pollfd* fds, nfds_t count, int timeout_ms)
{
    int ready = 0;
    for (nfds_t i = 0; i < count; ++i) {
        const auto* place = place_of(fds[i].fd);
        const bool over = place && place->node->from(place->at).empty();
        fds[i].revents = short(fds[i].events & POLLOUT);
        if (readable(fds[i].fd)) fds[i].revents |= short(fds[i].events & (POLLIN | (over ? POLLRDHUP : 0)));
        ready += fds[i].revents != 0;
    }
    return ready || timeout_ms == 0 ? ready : pass_time(int64_t(timeout_ms) * 1000);
}
// The rest of their arguments has no meaning here.
ssize_t __wrap_recv(int fd, void* to, size_t size, ...) { return take(fd, to, size); }
ssize_t __wrap_recvfrom(int fd, void* to, size_t size, ...) { return take(fd, to, size); }
ssize_t __wrap_send(int fd, const void* from, size_t size, ...) { return put(fd, from, size); }
int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list rest;
    va_start(rest, request);
    auto* place = place_of(fd);
    if (request == FIONREAD && place) *va_arg(rest, int*) = int(place->node->from(place->at).size());
    va_end(rest);
    return place ? 0 : failed(EBADF);
}

int __wrap_clock_gettime(clockid_t clock, struct timespec* time)
{
    PASS(clock_gettime, clock, time);
    *time = {++state.now_us / 1'000'000, state.now_us % 1'000'000 * 1000};
    return 0;
}
int __wrap_gettimeofday(struct timeval* time, void*)
{
    *time = {++state.now_us / 1'000'000, state.now_us % 1'000'000};
    return 0;
}
int __wrap_usleep(useconds_t us) { return pass_time(us); }
int __wrap_sigaction(int number, const struct sigaction* action, struct sigaction* old)
{
    PASS(sigaction, number, action, old);
    if (old) *old = {};
    return 0;
}
// Formats all the same: a wrong argument is found.
[[gnu::format(printf, 2, 0)]] void __wrap_vsyslog(int, const char* format, va_list rest)
{
    char line[1024];
    vsnprintf(line, sizeof line, format, rest);
}
[[gnu::format(printf, 2, 3)]] void __wrap_syslog(int priority, const char* format, ...)
{
    va_list rest;
    va_start(rest, format);
    __wrap_vsyslog(priority, format, rest);
    va_end(rest);
}
int __wrap_tcgetattr(int, termios* settings) { return *settings = {}, 0; }
#define SUCCEED(name, ...)                                                                                   \
    int __wrap_##name(__VA_ARGS__) { return 0; }
SUCCEED(fsync, int)
SUCCEED(fchmod, int, mode_t)
SUCCEED(fchown, int, uid_t, gid_t)
SUCCEED(fcntl64, int, int, ...)
SUCCEED(settimeofday, const struct timeval*, const struct timezone*)
SUCCEED(sigprocmask, int, const sigset_t*, sigset_t*)
SUCCEED(system, const char*)
SUCCEED(tcsetattr, int, int, const termios*)
SUCCEED(tcflush, int, int)
SUCCEED(tcdrain, int)
}
