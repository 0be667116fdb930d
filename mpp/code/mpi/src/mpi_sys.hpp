// What the system layer's sources share, and what it starts and stops.
#pragma once

#include "mpi/src/mpi_driver.hpp"

extern "C" {
// Modules. Each call does nothing when it has been made already.
int32_t MPI_AI_Init(void);
int32_t MPI_AI_DeInit(void);
int32_t MPI_AO_Init(void);
int32_t MPI_AO_DeInit(void);
int32_t MPI_AENC_Init(void);
int32_t MPI_AENC_DeInit(void);
int32_t MPI_ADEC_Init(void);
int32_t MPI_ADEC_DeInit(void);
}

namespace zep {

extern constinit Driver sys_driver;
extern constinit Driver log_driver;
extern constinit Driver mem_driver; // "/dev/mem"

} // namespace zep
