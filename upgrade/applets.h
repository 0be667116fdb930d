#ifndef UPGRADE_APPLETS_H
#define UPGRADE_APPLETS_H

/*
 * Applets of this folder. argv[0] is the bare applet name. All but xupgrade without -b end in a
 * reboot of the device and do not return then.
 */
#ifdef __cplusplus
extern "C" {
#endif

/** upgrade, or upgrade <package> <option> ...: writes a package and reboots, whatever the outcome.
 * Waits for another upgrade first. Does not return. */
int upgrade_main(int argc, char** argv);

/** xupgrade [-f] [-b] [-i] [-r <udp_port>] [-h]: writes /tmp/flash3 with the watchdog kept fed.
 * Waits for another upgrade first, but not with -h. Returns 0, after a failed upgrade too. */
int xupgrade_main(int argc, char** argv);

#ifdef __cplusplus
}
#endif

#endif
