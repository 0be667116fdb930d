// The sandbox: namespaces, id maps and rights. The root is put together in sandbox_root.cpp.
#include "sim/sandbox/sandbox.hpp"
#include "sim/sandbox/link.hpp"
#include "sim/sandbox/sandbox_root.hpp"
#include "sim/base/text.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/sched.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr unsigned long kNamespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;

// A fork into new namespaces. The C library's wrapper wants a stack of its own; the child here
// goes on like after fork.
pid_t fork_into(unsigned long namespaces)
{
    return pid_t(syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

bool try_write(const std::string& path, const std::string& content)
{
    Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return fd && write(fd.get(), content.data(), content.size()) == ssize_t(content.size());
}

// Root keeps its ids, so that owners inside are the owners in the state folder; anybody else, and a
// root that owns no further ids itself, is root inside and nobody more.
void write_maps(pid_t child)
{
    const std::string proc = text("/proc/%d/", child);
    if (geteuid() == 0 && try_write(proc + "uid_map", "0 0 65536\n") &&
        try_write(proc + "gid_map", "0 0 65536\n"))
        return;
    try_write(proc + "setgroups", "deny"); // refused to root, who needs it not
    bool mapped = try_write(proc + "uid_map", text("0 %u 1\n", geteuid())) &&
                  try_write(proc + "gid_map", text("0 %u 1\n", getegid()));
    if (!mapped)
        fail("the sandbox does not start: the id maps of process %d are refused: %s", child, strerror(errno));
}

// Only without a user namespace: what would reach the machine outside goes for good.
void drop_dangerous_rights()
{
    constexpr std::array kRights = {CAP_SYS_TIME,     CAP_SYS_BOOT,       CAP_SYS_MODULE, CAP_SYS_RAWIO,
                                    CAP_SYS_PACCT,    CAP_SYSLOG,         CAP_MKNOD,      CAP_MAC_ADMIN,
                                    CAP_MAC_OVERRIDE, CAP_SYS_TTY_CONFIG, CAP_WAKE_ALARM};
    for (int right : kRights)
        if (prctl(PR_CAPBSET_DROP, right, 0, 0, 0) < 0 && errno != EINVAL)
            fail("cannot drop a right before the camera starts: %s", strerror(errno));
    if (unshare(CLONE_NEWCGROUP) < 0 && errno != EINVAL) fail("no cgroup namespace: %s", strerror(errno));
}

void loopback_up()
{
    Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct ifreq request = {};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (fd && ioctl(fd.get(), SIOCSIFFLAGS, &request) == 0) return;
    // The first thing done in the new namespaces: some systems give them without the rights in them.
    fail("no loopback: %s; run as root, or, if the system keeps back the rights in user namespaces, set "
         "kernel.apparmor_restrict_unprivileged_userns=0 with sysctl",
         strerror(errno));
}

std::vector<char*> pointers(const std::vector<std::string>& words)
{
    std::vector<char*> out;
    for (const auto& word : words) out.push_back(const_cast<char*>(word.c_str()));
    out.push_back(nullptr);
    return out;
}

// The child's way from the namespaces to pid 1's program.
void become_init(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan, bool user_namespace)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // a killed launcher leaves nothing behind
    loopback_up();
    if (sethostname("camera", 6) < 0) fail("no host name: %s", strerror(errno));
    build_root(camera, pieces, plan);
    if (!plan.neighbour.empty()) make_link(plan.neighbour);
    if (!user_namespace) drop_dangerous_rights();
    close_range(3, ~0u, CLOSE_RANGE_CLOEXEC);
    execve("/sbin/vcam-guest", pointers(plan.arguments).data(), pointers(plan.environment).data());
    fail("cannot start /sbin/vcam-guest in the camera: %s", strerror(errno));
}

[[noreturn]] void child_main(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan,
                             bool user_namespace, int go)
{
    try {
        char byte;
        if (read(go, &byte, 1) != 1) _exit(kSandboxFailure); // the launcher could not write the id maps
        become_init(camera, pieces, plan, user_namespace);
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: the sandbox does not start: %s\n", e.what());
    }
    _exit(kSandboxFailure);
}

int wait_for(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Until the camera's first process has entered its root, the machine's own is still around it.
bool has_entered(const Camera& camera, const Fd& root)
{
    struct stat inside, own;
    return fstat(root.get(), &inside) == 0 && stat(camera.root("").c_str(), &own) == 0 &&
           inside.st_dev == own.st_dev && inside.st_ino == own.st_ino;
}

void enter_namespaces(const Camera& camera, pid_t pid)
{
    Fd target(int(syscall(SYS_pidfd_open, pid, 0)));
    Fd root(open(text("/proc/%d/root", pid).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!target || !root) fail("cannot join the camera, process %d: %s", pid, strerror(errno));
    if (!has_entered(camera, root))
        fail("the camera in %s is still starting; try again", camera.folder().c_str());
    // Without a user namespace of its own the camera shares ours, and joining that is refused.
    if (setns(target.get(), CLONE_NEWUSER) < 0 && errno != EINVAL)
        fail("cannot join the camera, process %d: %s", pid, strerror(errno));
    if (setns(target.get(), int(kNamespaces)) < 0 || fchdir(root.get()) < 0 || chroot(".") < 0)
        fail("cannot join the camera, process %d: %s", pid, strerror(errno));
}

// The command's parent, which itself stays outside the camera's process space.
[[noreturn]] void joiner_main(const Camera& camera, pid_t pid, const std::vector<std::string>& arguments,
                              const std::vector<std::string>& environment)
{
    try {
        enter_namespaces(camera, pid);
    } catch (const Error& e) {
        fprintf(stderr, "vcam: %s\n", e.what());
        _exit(kSandboxFailure);
    }
    pid_t child = fork(); // the first process inside: setns moves only children
    if (child > 0) _exit(wait_for(child));
    if (child == 0) execvpe(arguments[0].c_str(), pointers(arguments).data(), pointers(environment).data());
    fprintf(stderr, "vcam: exec: cannot start %s in the camera: %s\n", arguments[0].c_str(), strerror(errno));
    _exit(errno == ENOENT ? 127 : 126);
}

} // namespace

pid_t start_sandbox(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan)
{
    int go[2];
    if (pipe2(go, O_CLOEXEC) < 0) fail("no pipe: %s", strerror(errno));
    Fd go_read(go[0]), go_write(go[1]);
    fflush(nullptr);

    bool user_namespace = true;
    pid_t child = fork_into(CLONE_NEWUSER | kNamespaces);
    int reason = errno;
    if (child < 0 && geteuid() == 0) {
        user_namespace = false;
        child = fork_into(kNamespaces);
    }
    if (child < 0)
        fail("the sandbox does not start: no namespaces for uid %u: %s; %s", geteuid(), strerror(reason),
             geteuid() == 0 ? "root here lacks CAP_SYS_ADMIN, as in a container without privileges"
                            : "run as root, or allow user.max_user_namespaces and "
                              "kernel.unprivileged_userns_clone with sysctl");
    if (child == 0) {
        close(go_write.release());
        child_main(camera, pieces, plan, user_namespace, go_read.get());
    }
    try {
        if (user_namespace) write_maps(child);
    } catch (const Error&) {
        go_write = Fd();
        waitpid(child, nullptr, 0);
        throw;
    }
    if (write(go_write.get(), "", 1) != 1) fail("the sandbox's first process is gone");
    return child;
}

int join_sandbox(const Camera& camera, pid_t pid, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment)
{
    fflush(nullptr);
    pid_t joiner = fork();
    if (joiner < 0) fail("no process: %s", strerror(errno));
    if (joiner == 0) joiner_main(camera, pid, arguments, environment);
    return wait_for(joiner);
}

} // namespace vcam
