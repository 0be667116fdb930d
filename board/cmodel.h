#ifndef BOARD_CMODEL_H
#define BOARD_CMODEL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Model classes: what differs between camera models, by the model code.
 *
 * A model code is text such as "ZM131". Codes are compared whole and case-sensitively; a code that
 * a function does not list (an unknown one, the empty text, a null pointer) gives that function's
 * default. All functions are pure and may be called from any thread.
 */

/** Bytes that the caller of CMODEL_GetCode keeps for the code, NUL included. */
#define CMODEL_CODE_SIZE 2048

/** Bytes that CMODEL_UsesGpioSpi writes: "/dev/gpiospi" and its NUL. */
#define CMODEL_GPIOSPI_SIZE 13

/**
 * The code of this device: key "cam_model" of "/etc/cam_model.conf", or "ZM146" when the file cannot
 * be opened. A file without the key gives what CUTIL_GetConfValue gives.
 *
 * @param code  receives the code, at least CMODEL_CODE_SIZE bytes
 */
void CMODEL_GetCode(char* code);

/** Product line, 0 to 7; 0 by default. */
uint32_t CMODEL_GetLine(const char* model);

/** Membership: 1 for a listed model, else 0. */
uint32_t CMODEL_InSetOne(const char* model);
uint32_t CMODEL_InSetTwo(const char* model);
uint32_t CMODEL_InSetThree(const char* model);
uint32_t CMODEL_InSetFour(const char* model);
uint32_t CMODEL_InSetSix(const char* model);

/** Inverted: 0 for the one listed model, 1 for every other code. */
uint32_t CMODEL_IsNotSetFive(const char* model);

/** Inverted: 0 for the listed models, 1 for every other code. */
uint32_t CMODEL_OutsideSetSeven(const char* model);

/** Board generation: 2 for the second, 0 for the first (the default); never 1. */
uint32_t CMODEL_GetPlatform(const char* model);

/** Code 0 to 3; 0 by default. */
uint32_t CMODEL_GetSetEightCode(const char* model);

/** Video channels: 4 for the four-channel video servers, else 1. */
uint32_t CMODEL_GetChannelCount(const char* model);

/** A mask with one bit set. Several models share a bit; 0x1 by default, never 0. */
uint32_t CMODEL_GetModelBit(const char* model);

/**
 * Whether the model's GPIO lines hang on the SPI bus driver.
 *
 * @param device  null, or CMODEL_GPIOSPI_SIZE bytes that receive "/dev/gpiospi" when the answer is 1
 * @return 1 or 0
 */
uint32_t CMODEL_UsesGpioSpi(const char* model, char* device);

#ifdef __cplusplus
}
#endif

#endif
