// Preloaded into an upgrade on the virtual camera: makes one of its library calls fail or cuts the power
// before it. It counts the calls that the program itself makes on settings files, commands and the lock; the
// flash has the fault plan. FAIL_CALL is the call's number, from 0. FAIL_HOW is the effect: error, cut, and for
// a copying command empty, half and half-cut, after what it leaves of the file. Each counted call is a line of
// /tmp/calls. With FAIL_LOOP a reboot only ends the program.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int kPowerCut = 2; // of the camera's first process, added to SIGRTMIN

struct State {
    uintptr_t begin = 0, end = 0; // of the program's code
    int of_settings[1024] = {};   // by descriptor: 1 opened for reading, 2 for writing
    int calls = 0;
    int fail_at = -1;
    const char* how = "";
};
constinit State state;

int find_program(dl_phdr_info* object, size_t, void*)
{
    for (int i = 0; i < object->dlpi_phnum; ++i)
        if (object->dlpi_phdr[i].p_type == PT_LOAD && object->dlpi_phdr[i].p_flags & PF_X) {
            state.begin = object->dlpi_addr + object->dlpi_phdr[i].p_vaddr;
            state.end = state.begin + object->dlpi_phdr[i].p_memsz;
        }
    return 1; // the program is the first object
}

__attribute__((constructor)) void start()
{
    const char* name = program_invocation_short_name;
    if (strcmp(name, "upgrade") != 0 && strcmp(name, "xupgrade") != 0) return;
    dl_iterate_phdr(find_program, nullptr);
    if (const char* how = getenv("FAIL_HOW")) state.how = how;
    if (const char* number = getenv("FAIL_CALL")) state.fail_at = atoi(number);
}

bool on_settings(const char* path)
{
    return strncmp(path, "/etc", 4) == 0 || strncmp(path, "/proc/self", 10) == 0 || strstr(path, ".conf") ||
           strcmp(path, "/bin/webs") == 0 || strcmp(path, ".") == 0 || strcmp(path, "/") == 0;
}

int on_settings(int fd) { return fd >= 0 && fd < 1024 ? state.of_settings[fd] : 0; }
bool on_settings(const void*) { return true; }

// True when this call is the one. Only the program's own calls on its first thread count.
bool due(const char* call, const char* detail, const void* caller)
{
    auto from = reinterpret_cast<uintptr_t>(caller);
    if (from < state.begin || from >= state.end || syscall(SYS_gettid) != getpid()) return false;
    std::string line = std::string(call) + " " + detail + "\n";
    int out = int(syscall(SYS_openat, AT_FDCWD, "/tmp/calls", O_WRONLY | O_CREAT | O_APPEND, 0666));
    syscall(SYS_write, out, line.data(), line.size());
    syscall(SYS_close, out);
    if (state.calls++ != state.fail_at) return false;
    if (strcmp(state.how, "cut") != 0) return true;
    syscall(SYS_kill, 1, SIGRTMIN + kPowerCut);
    for (;;) pause();
}

template<class F> F* next(const char* name) { return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name)); }

const char* detail_of(const char* text) { return text; }
const char* detail_of(...) { return ""; }

// What a copying command leaves that came only so far.
void damage(const std::string& command)
{
    size_t to = command.rfind(' '), from = command.rfind(' ', to - 1);
    if (command.find("cp ") == std::string::npos) return;
    std::string source = command.substr(from + 1, to - from - 1), target = command.substr(to + 1);
    char bytes[4096];
    int in = int(syscall(SYS_openat, AT_FDCWD, source.c_str(), O_RDONLY));
    long size = strncmp(state.how, "half", 4) == 0 ? syscall(SYS_read, in, bytes, sizeof bytes) / 2 : 0;
    int out = int(syscall(SYS_openat, AT_FDCWD, target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666));
    if (size > 0) syscall(SYS_write, out, bytes, size);
    syscall(SYS_close, in);
    syscall(SYS_close, out);
}

} // namespace

#define CALL(type, name, parameters, arguments, first, error, failure)                                       \
    extern "C" type fail_##name parameters asm(#name);                                                       \
    extern "C" type fail_##name parameters                                                                   \
    {                                                                                                        \
        static auto* const real = next<type parameters>(#name);                                              \
        if (!on_settings(first) || !due(#name, detail_of(first), __builtin_return_address(0)))               \
            return real arguments;                                                                           \
        errno = error;                                                                                       \
        return failure;                                                                                      \
    }

CALL(ssize_t, read, (int fd, void* data, size_t size), (fd, data, size), fd, EIO, -1)
CALL(ssize_t, write, (int fd, const void* data, size_t size), (fd, data, size), fd, ENOSPC, -1)
CALL(int, fsync, (int fd), (fd), fd, EIO, -1)
CALL(int, fchmod, (int fd, mode_t mode), (fd, mode), fd, EIO, -1)
CALL(int, fstat64, (int fd, void* out), (fd, out), fd, EIO, -1)
CALL(int, stat64, (const char* path, void* out), (path, out), path, EIO, -1)
CALL(int, lstat64, (const char* path, void* out), (path, out), path, EIO, -1)
CALL(int, access, (const char* path, int mode), (path, mode), path, EIO, -1)
CALL(int, unlink, (const char* path), (path), path, EIO, -1)
CALL(int, rename, (const char* from, const char* to), (from, to), from, EIO, -1)
CALL(int, umount, (const char* path), (path), path, EBUSY, -1)
CALL(void*, opendir, (const char* path), (path), path, EMFILE, nullptr)
CALL(int, socket, (int domain, int type, int protocol), (domain, type, protocol), (void*)0, EMFILE, -1)
CALL(int, bind, (int fd, const void* address, unsigned size), (fd, address, size), (void*)0, ENOMEM, -1)

extern "C" int fail_open64(const char* path, int flags, mode_t mode) asm("open64");
extern "C" int fail_open64(const char* path, int flags, mode_t mode)
{
    static auto* const real = next<int(const char*, int, ...)>("open64");
    bool settings = on_settings(path);
    if (settings && due("open64", path, __builtin_return_address(0))) {
        errno = EIO;
        return -1;
    }
    int fd = real(path, flags, mode);
    if (fd >= 0 && fd < 1024) state.of_settings[fd] = settings ? 1 + (flags & O_ACCMODE) : 0;
    return fd;
}

extern "C" int close(int fd)
{
    static auto* const real = next<int(int)>("close");
    bool failing = on_settings(fd) > 1 && due("close", "", __builtin_return_address(0));
    if (fd >= 0 && fd < 1024) state.of_settings[fd] = 0;
    int result = real(fd);
    if (!failing) return result;
    errno = EIO;
    return -1;
}

extern "C" void* __libc_malloc(size_t);
extern "C" void* malloc(size_t size)
{
    if (state.begin && due("malloc", "", __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}

namespace {

// Commands that have nothing to do with settings take most of the time and are not run.
bool is_other_command(const char* command)
{
    for (const char* other : {"fuser ", "umount ", "ifconfig ", "rmmod "})
        if (strncmp(command, other, strlen(other)) == 0) return true;
    return false;
}

} // namespace

extern "C" int system(const char* command)
{
    static auto* const real = next<int(const char*)>("system");
    if (state.begin && is_other_command(command)) return 0;
    if (state.begin && getenv("FAIL_LOOP") && strcmp(command, "/sbin/reboot") == 0) _exit(0);
    if (!due("system", command, __builtin_return_address(0))) return real(command);
    if (strcmp(state.how, "error") != 0) damage(command);
    if (strcmp(state.how, "half-cut") == 0) {
        syscall(SYS_kill, 1, SIGRTMIN + kPowerCut);
        for (;;) pause();
    }
    errno = EAGAIN;
    return -1;
}
