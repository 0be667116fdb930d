// The xkill applet: stops processes by the path they were started with, or says whether one runs.
#include "service/applets.h"
#include "service/cutil_proc.h"

#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

// The wait is for the word, not the path. It returns at once, and the upgrade's sequence of SIGKILLs relies
// on not waiting here.
void signal_by_word(const char* word, const char* path, int signal)
{
    CUTIL_KillProc(path, signal);
    CUTIL_WaitProcEnd(word);
}

void act(const char* word, const char* path)
{
    if (strcmp(word, "SIGTERM") == 0) signal_by_word(word, path, SIGTERM);
    if (strcmp(word, "SIGKILL") == 0) signal_by_word(word, path, SIGKILL);
    // Alive, too, when the process list cannot be read: nothing says then that the process is gone.
    if (strcmp(word, "alive") == 0 && CUTIL_IsProc(path, 0)) printf("Alive %s\n", path);
}

} // namespace

int xkill_main(int argc, char** argv)
{
    if (argc == 3) act(argv[1], argv[2]);
    if (argc != 2) return 0;
    CUTIL_KillProc(argv[1], SIGTERM);
    CUTIL_WaitProcEnd(argv[1]);
    return 0;
}
