#ifndef BOARD_APPLETS_H
#define BOARD_APPLETS_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Handlers of the bring-up applets. Each takes the count and the vector of the command line, whose first word is
 * the applet's name; both stay the caller's. A handler is called once a process, from its only thread. The
 * dispatcher drops the result: a script sees status 0 unless the handler ends the process itself.
 */

/**
 * Probe a link for an IPv4 address: interface, address, milliseconds. Waits for at most that time, as
 * CTIME_IsExpired measures it. Prints "free", "conflict" with the other's hardware address, or "unknown" when no
 * probe could be sent; nothing when the run fails.
 *
 * @return 0 when no other host showed interest in the address; -1 when one did, or when a call on the socket
 *         failed. Another number of arguments ends the process with status 255.
 */
int qrn_arp_main(int argc, char** argv);

/**
 * Insert the driver modules and set the registers that the camera model needs, one shell command line after the
 * other. Takes no arguments. Waits for each command; none of their results is looked at.
 *
 * @return 0
 */
int load_drv_main(int argc, char** argv);

/**
 * Write MAC address, serial number and product code of the boot loader's environment to the file that is the one
 * argument, as assignments for the shell, and print them. What the environment does not hold is empty, but for
 * the MAC address, which then is 02:11:22:00:00:00.
 *
 * @return 0, also when the file cannot be written; -1 for another number of arguments, after a message
 */
int get_boot_param_main(int argc, char** argv);

/**
 * Read a GPIO line (group, bit) or drive it (group, bit, level), and print what was read. Another number of
 * arguments prints the usage. A line that is read becomes an input, one that is driven an output.
 *
 * @return 0, also when the driver refuses, after a message on standard output
 */
int xgpio_main(int argc, char** argv);

/**
 * Handler of xi2c and of xgpioi2c: read a register of an I2C device (device, register) or write it (device,
 * register, value), numbers as strtoll reads them with base 0, and print what was read: 0xFFFFFFFF when the
 * driver refuses. Another number of arguments prints the usage.
 *
 * @return 0
 */
int xi2c_main(int argc, char** argv);

/**
 * Set the system clock to the time of the real-time clock with the date command, and print it. A clock that cannot
 * be read leaves the system clock alone. Arguments are ignored.
 *
 * @return 0
 */
int xtime_main(int argc, char** argv);

#ifdef __cplusplus
}
#endif

#endif
