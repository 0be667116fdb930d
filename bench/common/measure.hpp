// Timing of a piece of work and of whole programs.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

// Milliseconds of the fastest of some rounds: what the work costs when nothing disturbs it.
inline double best_ms(int rounds, const std::function<void()>& work)
{
    double best = 1e9;
    for (int i = 0; i < rounds; ++i) {
        auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(
            best,
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

// Runs a program to its end with its output thrown away; its first word is looked up in PATH unless `file` is
// given.
inline void run(std::vector<std::string> words, const char* file = nullptr)
{
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    if (posix_spawnp(&pid, file ? file : argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        fprintf(stderr, "cannot run %s\n", argv[0]);
        exit(1);
    }
    posix_spawn_file_actions_destroy(&actions);
    int status;
    waitpid(pid, &status, 0);
}

inline void row(const std::string& what, double ms) { printf("  %-52s %9.3f ms\n", what.c_str(), ms); }
