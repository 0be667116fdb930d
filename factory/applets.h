#ifndef FACTORY_APPLETS_H
#define FACTORY_APPLETS_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Handlers of the factory tests. Each takes the count and the vector of the command line, whose first word is the
 * applet's name; both stay the caller's. A handler is called once a process, from its only thread.
 *
 * A test prints its verdict on standard output, "successful" or "failed", and returns 0 either way; "-v" prints the
 * steps before it. Wrong arguments are a failed test, with the usage on standard error. SIGINT, SIGTERM, SIGHUP,
 * SIGQUIT and SIGPIPE end a test without a verdict once the board is as it was, unless the caller ignores them.
 * A device that cannot be opened, or that another process tests, ends the process with status 255 and no verdict.
 */

/**
 * RS-485 and RS-232 port against a plug that returns what is sent. The only option is "-v", as the first argument;
 * other arguments are ignored. Waits up to 3 s for each of 40 blocks, and ends at the first that is wrong.
 *
 * @return 0
 */
int test_rs485_main(int argc, char** argv);
int test_rs232_main(int argc, char** argv);

/**
 * Ask the camera block on the RS-232 port for version, sensor and resolution, and print three lines instead of a
 * verdict. Waits up to 3 s for each of three answers. Options as test_rs232.
 *
 * @return 0
 */
int get_cb_cam_info_main(int argc, char** argv);

/**
 * Digital outputs against inputs, pair by pair (-v, -r, -n rounds). Waits 20 ms for each pattern.
 *
 * @return 0
 */
int test_dio_main(int argc, char** argv);

/**
 * LEDs, for an operator to judge (-v, -n times, -t ms, which one and what). Waits for the time given at each state.
 *
 * @return 0
 */
int test_led_main(int argc, char** argv);

/**
 * The key (-v, -t seconds): asks on standard error and waits until it was pressed and released, or for the limit.
 *
 * @return 0
 */
int test_key_main(int argc, char** argv);

/**
 * The medium on /mnt/sd, or /mnt/usb, with a file (-v, -m MiB). Waits for the medium; one slower than 250 ms for
 * 64 KiB, beyond a minute, fails.
 *
 * @return 0
 */
int test_sdcard_main(int argc, char** argv);
int test_usb_main(int argc, char** argv);

/**
 * The real-time clock (-v, -n): its pace, and whether it keeps what is written. Waits some 7 s.
 *
 * @return 0
 */
int test_rtc_main(int argc, char** argv);

/**
 * Send the system manager the commands that stop and restart its watchdog feeding (-v, -s, -r, -n, -i, which one).
 * Waits between two times. The verdict is of the sending alone.
 *
 * @return 0
 */
int test_send_watchdog_main(int argc, char** argv);

/**
 * The audio loop-back over the network: serves stations until a signal ends it.
 *
 * @return 0; wrong arguments, or a port that cannot be listened on, end the process with status 255
 */
int test_audio_main(int argc, char** argv);

#ifdef __cplusplus
}
#endif

#endif
