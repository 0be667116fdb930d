// A process with a first argument of the test's choice, ended with the object.
#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

// Names are unique on the machine: a test signals nothing that it did not start.
inline std::string unique_name(const std::string& stem)
{
    static int count = 0;
    return "/zep-test/" + std::to_string(getpid()) + "." + std::to_string(++count) + "/" + stem;
}

class Child {
public:
    // The set-up is a part of a shell script.
    explicit Child(const std::string& argument0, const std::string& setup = "")
    {
        int ready[2], alive[2];
        if (pipe2(ready, O_CLOEXEC) < 0 || pipe2(alive, O_CLOEXEC) < 0) abort();
        pid_ = fork();
        if (pid_ == 0) {
            dup2(alive[0], STDIN_FILENO);
            dup2(ready[1], STDOUT_FILENO);
            const std::string script = setup + "echo; exec 1>&-; read line";
            execl("/bin/sh", argument0.c_str(), "-c", script.c_str(), nullptr);
            _exit(127);
        }
        close(ready[1]);
        close(alive[0]);
        alive_ = alive[1]; // its end ends the child, also when the test program crashes
        char byte;
        if (read(ready[0], &byte, 1) != 1) abort(); // the shell runs, so the name is in place
        close(ready[0]);
    }
    ~Child()
    {
        close(alive_);
        if (pid_ > 0) wait_end();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] int pid() const { return pid_; }
    // The signal that ended the process; 0 while it runs.
    int ended_by()
    {
        if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) == pid_) pid_ = -1;
        return pid_ > 0 ? 0 : WTERMSIG(status_);
    }
    // Waits for the end that a signal sent before must bring.
    int wait_end()
    {
        if (pid_ > 0 && waitpid(pid_, &status_, 0) == pid_) pid_ = -1;
        return WTERMSIG(status_);
    }

private:
    int alive_ = -1;
    int pid_ = -1;
    int status_ = 0;
};
