#ifndef SERVICE_CUTIL_PROC_H
#define SERVICE_CUTIL_PROC_H

/**
 * Processes by the path they were started with.
 *
 * A process matches a name when its first argument, as started, begins with the name: "/bin/web" matches
 * "/bin/webs" too, and the empty name matches every process but kernel threads. The calling process is
 * no exception. Processes of low number are the kernel's and the start-up's own and are left alone; the
 * bounds differ on purpose: process 20 can be signalled, but is never reported as present.
 *
 * The functions keep no state and may be called from any thread. errno has no meaning after them.
 */

#ifdef __cplusplus
extern "C" {
#endif

/** Names that CUTIL_KillProcAll takes from a list, and bytes of each with its terminator. */
#define CUTIL_KILL_LIST_NAMES 16
#define CUTIL_KILL_LIST_NAME_SIZE 32

/**
 * Tell whether a process above number 20 matches.
 *
 * A process that ends during the scan is named on standard output ("CUTIL_IsProc error while open ...").
 *
 * @param verbose  not 0: trace lines on standard output, also when /proc cannot be opened
 * @return 1, 0, or -1 when /proc cannot be opened or closed
 */
int CUTIL_IsProc(const char* name, int verbose);

/**
 * Send a signal to every process above number 19 that matches. A signal that fails is not reported.
 *
 * @return 0, also when /proc cannot be opened
 */
int CUTIL_KillProc(const char* name, int signal);

/**
 * Send a signal to every process above number 19, once for each name of a list that it matches.
 *
 * The list holds one name a line; lines of 32 characters or more, line end included, are passed over, and
 * so is what comes after CUTIL_KILL_LIST_NAMES names. An empty line is the empty name, so it hits
 * every process. Progress goes to the system log at LOG_INFO.
 *
 * @return 0, also when /proc cannot be opened; -1 when the list cannot
 */
int CUTIL_KillProcAll(const char* list_path, int signal);

/**
 * Wait until no process matches, at most 10 s of wall clock; ends at once if the clock is set back.
 *
 * @return the last result of CUTIL_IsProc: 0 when the process is gone
 */
int CUTIL_WaitProcEnd(const char* name);

#ifdef __cplusplus
}
#endif

#endif
