// The sandbox: namespaces and id maps. The root is put together in sandbox_root.cpp.
#include "sim/sandbox/sandbox.hpp"
#include "sim/sandbox/link.hpp"
#include "sim/sandbox/rights.hpp"
#include "sim/sandbox/sandbox_root.hpp"
#include "sim/base/text.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
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

// Two user namespaces, one in the other. In the outer one the builder mounts the camera's root. The camera's
// processes live in the inner one: for them the kernel locks every mount that a more powerful namespace made,
// so that none of it can be taken away or be made writable.
constexpr unsigned long kOuter = CLONE_NEWUSER | CLONE_NEWNS;
constexpr unsigned long kInner = CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;

// One process waits until another one has given its word; false when that one has ended without.
class Gate {
public:
    Gate()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) < 0) fail("no pipe: %s", strerror(errno));
        read_ = Fd(ends[0]);
        write_ = Fd(ends[1]);
    }
    bool give(pid_t word = 0) { return write(write_.get(), &word, sizeof word) == sizeof word; }
    bool wait(pid_t* word = nullptr)
    {
        write_ = Fd();
        pid_t got = 0;
        ssize_t n;
        while ((n = read(read_.get(), &got, sizeof got)) < 0 && errno == EINTR) {
        }
        if (word) *word = got;
        return n == sizeof got;
    }
    void shut() { write_ = Fd(); }

private:
    Fd read_, write_;
};

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

// The way of the camera's first process from its namespaces to its program.
void become_init(const SandboxPlan& plan, Gate& mapped, Gate& ready, Gate& built, Gate& known)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // a killed launcher leaves nothing behind
    if (!mapped.wait()) _exit(kSandboxFailure);
    // Found while the host's devices are in sight, opened by the program for each file system that it serves: the kernel
    // takes an opening only from the user namespace of the mount.
    Fd fuse(open("/dev/fuse", O_PATH | O_CLOEXEC));
    struct stat device = {};
    if (fuse && (fstat(fuse.get(), &device) < 0 || !S_ISCHR(device.st_mode))) fuse = Fd();
    loopback_up();
    if (sethostname("camera", 6) < 0) fail("no host name: %s", strerror(errno));
    ready.give();
    if (!built.wait()) _exit(kSandboxFailure); // the builder has said why
    if (chdir("/") < 0 || unshare(CLONE_NEWNS) < 0) fail("no mounts of its own: %s", strerror(errno));
    mount_media(plan);
    if (!plan.neighbour.empty()) make_link(plan.neighbour);
    give_up_rights();
    if (!known.wait()) _exit(kSandboxFailure);
    close_range(3, ~0u, CLOSE_RANGE_CLOEXEC);
    auto arguments = plan.arguments;
    if (fuse) {
        fcntl(fuse.get(), F_SETFD, 0);
        arguments.insert(arguments.begin() + 1, {"--fuse", text("%d", fuse.get())});
    }
    execve("/sbin/vcam-guest", pointers(arguments).data(), pointers(plan.environment).data());
    fail("cannot start /sbin/vcam-guest in the camera: %s", strerror(errno));
}

// Runs the body of a new process, which does not return to its caller's.
template<class Body> [[noreturn]] void finish_process(Body body)
{
    try {
        body();
        _exit(0);
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: the sandbox does not start: %s\n", e.what());
    } catch (const AlreadySaid&) {
    }
    _exit(kSandboxFailure);
}

// Makes the camera's first process, as the launcher's child, and the root for it.
void build_camera(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan, Gate& launcher,
                  Gate& known)
{
    Gate mapped, ready, built;
    const pid_t init = fork_into(kInner | CLONE_PARENT);
    if (init < 0) fail("no namespaces within the first: %s", strerror(errno));
    if (init == 0) {
        finish_process([&] { become_init(plan, mapped, ready, built, known); });
    }
    launcher.give(init);
    write_maps(init);
    mapped.give();
    if (!ready.wait()) throw AlreadySaid();
    build_root(camera, pieces, plan, init);
    built.give();
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
    if (setns(target.get(), CLONE_NEWUSER) < 0 ||
        setns(target.get(), int((kInner & ~CLONE_NEWUSER) | CLONE_NEWNS)) < 0 || fchdir(root.get()) < 0 ||
        chroot(".") < 0)
        fail("cannot join the camera, process %d: %s", pid, strerror(errno));
    give_up_rights();
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
    if (child == 0) {
        auto variables = pointers(environment);
        environ = variables.data(); // the camera's PATH is searched
        execvp(arguments[0].c_str(), pointers(arguments).data());
    }
    fprintf(stderr, "vcam: exec: cannot start %s in the camera: %s\n", arguments[0].c_str(), strerror(errno));
    _exit(errno == ENOENT ? 127 : 126);
}

} // namespace

pid_t start_sandbox(const Camera& camera, const Pieces& pieces, const SandboxPlan& plan,
                    const std::function<void(pid_t)>& make_known)
{
    Gate mapped, number, known;
    fflush(nullptr);
    const pid_t builder = fork_into(kOuter);
    if (builder < 0)
        fail("the sandbox does not start: no namespaces for uid %u: %s; %s", geteuid(), strerror(errno),
             geteuid() == 0
                 ? "allow user.max_user_namespaces with sysctl; a container needs the right to make "
                   "user namespaces (CAP_SYS_ADMIN)"
                 : "run as root, or allow user.max_user_namespaces and "
                   "kernel.unprivileged_userns_clone with sysctl");
    if (builder == 0)
        finish_process([&] {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (!mapped.wait()) throw AlreadySaid(); // the launcher could not write the id maps
            build_camera(camera, pieces, plan, number, known);
        });
    try {
        write_maps(builder);
    } catch (const Error&) {
        mapped.shut();
        waitpid(builder, nullptr, 0);
        throw;
    }
    pid_t init = 0;
    if (!mapped.give() || !number.wait(&init)) return builder; // it ends like a camera that does not start
    make_known(init);
    known.give();
    wait_for(builder);
    return init;
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
