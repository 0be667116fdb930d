// One scan of the process list, which all that look for processes share.
#pragma once

#include <cstddef>

namespace zep {

// How a scanner reads the first argument of a process.
struct ProcScanRule {
    int lowest_pid;  // processes below are left alone
    size_t length;   // characters kept of the first argument, at most 256
    bool first_line; // keep it up to and with its first line feed only
};

// The bounds differ on purpose: process 20 can be signalled but is never reported as present.
inline constexpr ProcScanRule kPresenceRule = {.lowest_pid = 21, .length = 256, .first_line = false};
inline constexpr ProcScanRule kSignalRule = {.lowest_pid = 20, .length = 255, .first_line = true};

// Callbacks of one scan; a null pointer is not called.
struct ProcVisitor {
    void* context;
    // A process and its first argument, never empty. False ends the scan.
    bool (*process)(void* context, int pid, const char* command);
    void (*entry)(void* context, const char* name) = nullptr;               // each name in /proc
    void (*considered)(void* context, int pid, const char* path) = nullptr; // each process of the rule
    void (*vanished)(void* context, const char* path) = nullptr;            // it could not be opened
};

// Walks /proc. Returns 0; -1 with errno when /proc cannot be opened, or closed at the end.
int scan_processes(const ProcScanRule& rule, const ProcVisitor& visitor);

// The first argument begins with the name.
bool proc_matches(const char* command, const char* name);

} // namespace zep
