#ifndef SERVICE_CUTIL_REBOOT_H
#define SERVICE_CUTIL_REBOOT_H

/** Ways to bring the device down. Standard output is flushed first. */

#ifdef __cplusplus
extern "C" {
#endif

/** Processes to be ended before a reboot, one name a line: with SIGKILL, then with SIGTERM. */
#define CUTIL_KILL_LIST_PATH "/etc/killList"
#define CUTIL_TERM_LIST_PATH "/etc/termList"

/** Ends the listed processes, unmounts the storage, takes the wireless network down and reboots. */
void CUTIL_Reboot(void) __attribute__((noreturn));

/** The same, but ends the network services and the shells instead of the processes of the kill list. */
void CUTIL_RebootNet(void) __attribute__((noreturn));

#ifdef __cplusplus
}
#endif

#endif
