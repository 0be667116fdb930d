/**
 * The two codec registries, one of encoders and one of decoders, CODEC_REGISTRY_SIZE entries each. Channels
 * look codecs up here by payload type. Every operation is safe from any thread: one mutex guards each
 * registry whole, and no codec is called while it is held.
 */
#ifndef MPP_MPI_SRC_MPI_CODEC_REGISTRY_H
#define MPP_MPI_SRC_MPI_CODEC_REGISTRY_H

#include <stdint.h>

#include "base/mpp_codec.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Register an encoder; the descriptor is copied. It stays until HI_MPI_SYS_Exit empties the registry.
 *
 * @param ps32Handle  receives the entry's index, 0 to 19: the lowest free one
 * @return 0; 0xA0178006 for a null pointer, handle, descriptor or operation (logged);
 *         0xA017800F when 20 are registered or the payload type is
 */
int32_t HI_MPI_AENC_RegeisterEncoder(int32_t* ps32Handle, const AENC_ENCODER_S* pstEncoder);

/**
 * The same for a decoder, whose four operations are all required.
 * @return 0; 0xA0188006 for a null pointer (logged); 0xA018800F when 20 are registered or the payload type is
 */
int32_t HI_MPI_ADEC_RegeisterDecoder(int32_t* ps32Handle, const ADEC_DECODER_S* pstDecoder);

/**
 * Register the built-in encoders; run by the module's initialisation.
 * @return 0; the code of the first that fails, the rest is not registered then
 */
int32_t MPI_AENC_RegisterBuiltIn(void);
/** The same for the decoders. @return as MPI_AENC_RegisterBuiltIn */
int32_t MPI_ADEC_RegisterBuiltIn(void);

/** Empty the registry of encoders; run by the module's de-initialisation. */
void MPI_AENC_ClearRegistry(void);
/** Empty the registry of decoders. */
void MPI_ADEC_ClearRegistry(void);

/**
 * Copy the descriptor of a payload type.
 * @return 0; number MPP_ERR_PARAM of the module when none is registered
 */
int32_t MPI_AENC_FindEncoder(int32_t enType, AENC_ENCODER_S* pstEncoder);
/** The same for a decoder. @return as MPI_AENC_FindEncoder */
int32_t MPI_ADEC_FindDecoder(int32_t enType, ADEC_DECODER_S* pstDecoder);

/** Copy entry 0 to 19. @return 0; number MPP_ERR_PARAM for a free entry or another index */
int32_t MPI_AENC_GetEncoder(int32_t s32Handle, AENC_ENCODER_S* pstEncoder);
/** The same for a decoder. @return as MPI_AENC_GetEncoder */
int32_t MPI_ADEC_GetDecoder(int32_t s32Handle, ADEC_DECODER_S* pstDecoder);

#ifdef __cplusplus
}
#endif
#endif
