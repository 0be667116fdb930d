/* Runs a program and says what it took, seen from the kernel at its end.
 *
 *   account FILE NAME PROGRAM [WORD...]
 *
 * Appends to FILE a line with NAME, the most address space and the memory at the end in kB, what its first thread's
 * stack has of it, and the processor time from its start in ns; then "  stack KB of ROOM" for each other
 * thread. Programs that it starts are not counted. */
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static FILE* out;
static pid_t program;

static uint64_t processor_ns(void)
{
    struct timespec t = {0};
    clockid_t clock;
    if (clock_getcpuclockid(program, &clock) == 0) clock_gettime(clock, &t);
    return (uint64_t)t.tv_sec * 1000000000 + (uint64_t)t.tv_nsec;
}

static FILE* of_program(const char* file)
{
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/%s", (int)program, file);
    FILE* f = fopen(path, "r");
    if (!f) exit(125);
    return f;
}

static unsigned long kb_of(const char* file, const char* field)
{
    char line[128];
    unsigned long kb = 0;
    FILE* f = of_program(file);
    while (fgets(line, sizeof line, f))
        if (strncmp(line, field, strlen(field)) == 0) kb = strtoul(line + strlen(field) + 1, NULL, 10);
    fclose(f);
    return kb;
}

/* Pages in memory of the mapping at an address, and its size, in kB. */
static unsigned long stack_kb(unsigned long at, unsigned long* room)
{
    char line[256];
    unsigned long from, to, kb = 0;
    int here = 0;
    FILE* f = of_program("smaps");
    while (fgets(line, sizeof line, f)) {
        if (sscanf(line, "%lx-%lx ", &from, &to) == 2) {
            here = at >= from && at < to;
            if (here) *room = (to - from) / 1024;
        } else if (here && strncmp(line, "Rss:", 4) == 0) {
            kb = strtoul(line + 4, NULL, 10);
        }
    }
    fclose(f);
    return kb;
}

static struct user_regs registers(pid_t thread)
{
    struct user_regs r;
    if (ptrace(PTRACE_GETREGS, thread, 0, &r) != 0) memset(&r, 0, sizeof r);
    return r;
}

/* A thread that ends gives the unused part of its stack back first. */
static void at_system_call(pid_t thread)
{
    const struct user_regs r = registers(thread);
    unsigned long room = 0;
    if (r.uregs[7] != SYS_madvise || r.uregs[12] != 0) return; /* r12 is 0 on the way in */
    const unsigned long kb = stack_kb(r.uregs[13], &room);
    fprintf(out, "  stack %lu of %lu\n", kb, room);
}

static void at_end(const char* name, uint64_t began)
{
    unsigned long room = 0;
    const unsigned long kb = stack_kb(registers(program).uregs[13], &room);
    fprintf(out, "%s %lu %lu %lu %llu\n", name, kb_of("status", "VmPeak:"), kb_of("smaps_rollup", "Rss:"), kb,
            (unsigned long long)(processor_ns() - began));
}

int main(int argc, char** argv)
{
    if (argc < 4 || !(out = fopen(argv[1], "a"))) return 125;
    setvbuf(out, NULL, _IOLBF, 0);
    program = fork();
    if (program == 0) {
        fclose(out);
        ptrace(PTRACE_TRACEME, 0, 0, 0);
        raise(SIGSTOP);
        char* path = argv[3];
        argv[3] = argv[2];
        execv(path, argv + 3);
        _exit(127);
    }
    int status;
    uint64_t began = 0;
    waitpid(program, &status, 0);
    ptrace(PTRACE_SETOPTIONS, program, 0,
           PTRACE_O_TRACEEXIT | PTRACE_O_TRACEEXEC | PTRACE_O_TRACECLONE | PTRACE_O_TRACESYSGOOD);
    ptrace(PTRACE_CONT, program, 0, 0);
    for (pid_t thread; (thread = waitpid(-1, &status, __WALL)) > 0;) {
        if (!WIFSTOPPED(status)) {
            if (thread == program) break;
            continue;
        }
        const int what = WSTOPSIG(status), event = status >> 16;
        if (event == PTRACE_EVENT_EXEC) began = processor_ns();
        if (event == PTRACE_EVENT_EXIT && thread == program) at_end(argv[2], began);
        if (what == (SIGTRAP | 0x80)) at_system_call(thread);
        const int deliver =
            event || what == SIGTRAP || what == (SIGTRAP | 0x80) || what == SIGSTOP ? 0 : what;
        ptrace(thread == program ? PTRACE_CONT : PTRACE_SYSCALL, thread, 0, deliver);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}
