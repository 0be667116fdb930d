// Device files of the system layer.
#pragma once

#include "mpi/src/mpi_driver.hpp"

namespace zep {

extern constinit Driver sys_driver;
extern constinit Driver log_driver;
extern constinit Driver mem_driver; // "/dev/mem"

} // namespace zep
