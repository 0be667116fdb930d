#ifndef SERVICE_CUTIL_REBOOT_H
#define SERVICE_CUTIL_REBOOT_H

/**
 * Ways to bring the device down. Both flush standard output first and never return. errno does not matter.
 * Call them from one thread; they signal, run shell commands and wait on the caller's thread.
 */

#ifdef __cplusplus
extern "C" {
#endif

/** Processes to be ended before a reboot, one name a line: with SIGKILL, then with SIGTERM. */
#define CUTIL_KILL_LIST_PATH "/etc/killList"
#define CUTIL_TERM_LIST_PATH "/etc/termList"

/**
 * End the listed processes, unmount the storage, take the wireless network down and run /sbin/reboot. Then
 * wait for its effect. A reboot command that cannot be started or ends with a status other than 0 is
 * followed 60 s later by a line in the system log, sync and the system call.
 */
void CUTIL_Reboot(void) __attribute__((noreturn));

/** Do the same, but end the network services and the shells instead of the processes of the kill list. */
void CUTIL_RebootNet(void) __attribute__((noreturn));

#ifdef __cplusplus
}
#endif

#endif
