/* A daemon of the camera on the emulated machine, under the name that it is started by: sleeps until a signal ends it.
 * Its words may be ignore-term, and the names of files to keep open. */
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "ignore-term") == 0) {
            signal(SIGTERM, SIG_IGN);
        } else if (open(argv[i], O_RDONLY) < 0) {
            perror(argv[i]);
            return 1;
        }
    }
    for (;;) pause();
}
