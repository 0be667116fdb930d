#ifndef BOARD_APPLETS_H
#define BOARD_APPLETS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Handlers of the bring-up applets; each takes the vector whose first word is the applet's name. */
int qrn_arp_main(int argc, char** argv);
int load_drv_main(int argc, char** argv);
int get_boot_param_main(int argc, char** argv);
int xgpio_main(int argc, char** argv);
int xi2c_main(int argc, char** argv);
int xtime_main(int argc, char** argv);

#ifdef __cplusplus
}
#endif

#endif
