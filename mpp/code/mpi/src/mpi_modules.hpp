// What the system layer starts and stops. Each call does nothing when it has been made already.
#pragma once

#include <cstdint>

extern "C" {
int32_t MPI_AI_Init(void);
int32_t MPI_AI_DeInit(void);
int32_t MPI_AO_Init(void);
int32_t MPI_AO_DeInit(void);
int32_t MPI_AENC_Init(void);
int32_t MPI_AENC_DeInit(void);
int32_t MPI_ADEC_Init(void);
int32_t MPI_ADEC_DeInit(void);
}
