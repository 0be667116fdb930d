// The process whose call a model answers.
#include "sim/base/caller.hpp"
#include "sim/base/raw.hpp"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace vcam::caller {
namespace {

thread_local int asking = 0; // thread; 0: this process itself

// A request carries the number of the thread that made it.
int process_of(int thread)
{
    constexpr char kKey[] = "\nTgid:";
    const std::string status = raw::read_text("/proc/" + std::to_string(thread) + "/status");
    const size_t at = status.find(kKey);
    return at == std::string::npos ? thread : atoi(status.c_str() + at + sizeof kKey - 1);
}

// Where the kernel lacks the call, a model still reaches its own process.
bool whole(ssize_t moved, size_t size, bool& copy)
{
    copy = asking == 0 && moved < 0 && (errno == ENOSYS || errno == EPERM);
    return moved == ssize_t(size);
}

} // namespace

bool is_other() { return asking != 0; }
int pid() { return asking ? process_of(asking) : raw::pid(); }

bool load(const void* from, void* to, size_t size)
{
    const iovec local = {to, size}, remote = {const_cast<void*>(from), size};
    bool copy = false;
    if (whole(::process_vm_readv(asking ? asking : raw::pid(), &local, 1, &remote, 1, 0), size, copy))
        return true;
    if (copy) memcpy(to, from, size);
    return copy;
}

bool store(void* to, const void* from, size_t size)
{
    const iovec local = {const_cast<void*>(from), size}, remote = {to, size};
    bool copy = false;
    if (whole(::process_vm_writev(asking ? asking : raw::pid(), &local, 1, &remote, 1, 0), size, copy))
        return true;
    if (copy) memcpy(to, from, size);
    return copy;
}

void interrupt(int number)
{
    const int process = pid();
    if (process == 1) return;
    const int e = errno;
    sigset_t held;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &held);
    if (asking || ::sigismember(&held, number)) // perhaps another thread takes it
        ::syscall(SYS_kill, process, number);
    else
        ::syscall(SYS_tgkill, process, ::syscall(SYS_gettid), number);
    errno = e;
}

Answering::Answering(int thread) : before_(asking) { asking = thread; }
Answering::~Answering() { asking = before_; }

} // namespace vcam::caller
