#ifndef FACTORY_APPLETS_H
#define FACTORY_APPLETS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Handlers of the factory tests; each takes the vector whose first word is the applet's name. */
int test_rs485_main(int argc, char** argv);
int test_rs232_main(int argc, char** argv);
int get_cb_cam_info_main(int argc, char** argv);
int test_dio_main(int argc, char** argv);
int test_led_main(int argc, char** argv);
int test_key_main(int argc, char** argv);
int test_sdcard_main(int argc, char** argv);
int test_usb_main(int argc, char** argv);
int test_rtc_main(int argc, char** argv);
int test_send_watchdog_main(int argc, char** argv);
int test_audio_main(int argc, char** argv);

#ifdef __cplusplus
}
#endif

#endif
