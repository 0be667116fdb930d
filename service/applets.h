#ifndef SERVICE_APPLETS_H
#define SERVICE_APPLETS_H

/** Applet handlers of this folder, called by the dispatcher with the reduced name in argv[0]. */

#ifdef __cplusplus
extern "C" {
#endif

/** `xkill [SIGTERM|SIGKILL|alive] <path>`: stops processes by the path they were started with. Waits at
 * most 10 s. Returns 0. */
int xkill_main(int argc, char** argv);

#ifdef __cplusplus
}
#endif

#endif
