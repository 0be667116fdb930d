// One scan of the process list with a thousand more processes, beside pgrep -f.
#include "bench/common/measure.hpp"
#include "service/cutil_proc.h"

#include <csignal>
#include <cstring>

namespace {

class Crowd {
public:
    explicit Crowd(const char* self)
    {
        if (pipe2(alive_, O_CLOEXEC) < 0) exit(1);
        self_ = self;
    }
    // The members end when the writing end of the pipe is closed, however this program ends.
    void grow_to(size_t size)
    {
        while (pids_.size() < size) {
            pid_t pid = fork();
            if (pid == 0) {
                dup2(alive_[0], STDIN_FILENO);
                std::string name = "/bench/daemon" + std::to_string(pids_.size());
                execl(self_, name.c_str(), "wait", nullptr);
                _exit(127);
            }
            if (pid < 0) {
                perror("fork");
                break;
            }
            pids_.push_back(pid);
        }
        // All have their names when the last one answers to it.
        std::string last = "/bench/daemon" + std::to_string(pids_.size() - 1);
        while (CUTIL_IsProc(last.c_str(), 0) != 1) usleep(10000);
    }
    ~Crowd()
    {
        close(alive_[1]);
        for (pid_t pid : pids_) waitpid(pid, nullptr, 0);
    }

private:
    const char* self_;
    int alive_[2];
    std::vector<pid_t> pids_;
};

constexpr const char* kAbsent = "/bench/absent";

void measure(Crowd& crowd, size_t size)
{
    crowd.grow_to(size);
    printf("a scan past %zu processes more, no match\n", size);
    row("CUTIL_IsProc", best_ms(20, [] { CUTIL_IsProc(kAbsent, 0); }));
    row("CUTIL_KillProc", best_ms(20, [] { CUTIL_KillProc(kAbsent, SIGTERM); }));
    row("xkill alive, whole program", best_ms(20, [] { run({"xkill", "alive", kAbsent}, ZEP_PROGRAM); }));
    row("pgrep -f, whole program", best_ms(20, [] { run({"pgrep", "-f", std::string("^") + kAbsent}); }));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && strcmp(argv[1], "wait") == 0) {
        char byte;
        return int(read(STDIN_FILENO, &byte, 1));
    }
    Crowd crowd("/proc/self/exe");
    for (size_t size : {100, 1000}) measure(crowd, size);
    (void)argv;
}
