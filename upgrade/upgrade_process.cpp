// Keeps an upgrading process alive, alone and readable from its start to the reboot.
#include "upgrade/upgrade_process.hpp"

#include "common/base/parse_int.hpp"
#include "upgrade/log.hpp"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <initializer_list>
#include <link.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace zep {
namespace {

// An abstract name: it needs no file and ends with the process that holds it.
constexpr sockaddr_un kLockAddress = {AF_UNIX, "\0zep-upgrade"};
constexpr unsigned kLockAddressBytes = sizeof kLockAddress;

void replace_with_null(int fd)
{
    int null = open("/dev/null", O_RDWR);
    if (null == fd) return;
    if (null < 0 || dup2(null, fd) < 0) close(fd);
    if (null >= 0) close(null);
}

// A service may start an upgrade with its output closed. The flash must not become standard error, or a
// message would be written into it.
void open_closed_outputs()
{
    for (int fd : {STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(fd, F_GETFD) < 0) replace_with_null(fd);
}

// False when /etc is no mount of its own: everything would stand on it then.
bool is_settings_partition(dev_t device)
{
    struct stat settings, root;
    if (stat("/etc", &settings) < 0 || stat("/", &root) < 0) return false;
    return device == settings.st_dev && device != root.st_dev;
}

const char* leave_settings_folder(const char* package)
{
    static char absolute[PATH_MAX];
    struct stat folder;
    if (stat(".", &folder) < 0 || !is_settings_partition(folder.st_dev)) return package;
    if (realpath(package, absolute) || realpath(package, absolute))
        package = absolute;
    else if (package[0] != '/')
        return package; // from another folder the name would be another file's
    if (chdir("/") == 0) log_and_print("upgrade: left the working folder on /etc");
    return package;
}

void release_descriptor(int fd)
{
    char link[32];
    char path[PATH_MAX];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t length = readlink(link, path, sizeof path);
    if (fd <= STDERR_FILENO)
        replace_with_null(fd);
    else
        close(fd);
    log_and_print("upgrade: let go of descriptor %d, %.*s", fd, int(length < 0 ? 0 : length), path);
}

// An upgrade ends whatever uses /etc, and itself with it if it did.
void release_descriptors()
{
    DIR* folder = opendir("/proc/self/fd");
    if (!folder) return;
    while (const dirent* entry = readdir(folder)) {
        int fd = parse_int(entry->d_name);
        if (on_settings_partition(fd)) release_descriptor(fd);
    }
    closedir(folder);
}

// The descriptor stays open for the life of the process.
void wait_for_other_upgrade()
{
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool said = false;
    while (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&kLockAddress), kLockAddressBytes) < 0) {
        if (errno != EADDRINUSE) {
            log_and_print("upgrade: cannot keep another one out: %s", strerror(errno));
            return;
        }
        if (!said) {
            log_and_print("upgrade: another one runs, waiting for its end");
            lock_program_in_memory(); // the other one rewrites the file system below this one
        }
        said = true;
        sleep(1);
    }
}

int lock_object(dl_phdr_info* object, size_t, void*)
{
    for (unsigned i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD) continue;
        auto start = uintptr_t(object->dlpi_addr + segment.p_vaddr);
        mlock(reinterpret_cast<const void*>(start), segment.p_memsz);
    }
    return 0;
}

} // namespace

const char* prepare_process(const char* package)
{
    // The services and shells that an upgrade ends may be the readers of its output or the leader of
    // its terminal: their end must not interrupt it halfway through the flash.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
    open_closed_outputs();
    package = leave_settings_folder(package);
    release_descriptors();
    wait_for_other_upgrade();
    return package;
}

bool settings_mounted()
{
    struct stat settings;
    return stat("/etc", &settings) == 0 && is_settings_partition(settings.st_dev);
}

bool on_settings_partition(int fd)
{
    struct stat file;
    return fstat(fd, &file) == 0 && is_settings_partition(file.st_dev);
}

void lock_program_in_memory() { dl_iterate_phdr(lock_object, nullptr); }

} // namespace zep
