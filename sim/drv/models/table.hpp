// The simulated devices. A new one is a file of its own, a declaration and a row here.
#pragma once

#include "sim/drv/models/model.hpp"

#include <span>

namespace vcam::models {

Model& mtd(unsigned number);         // mtd.cpp
Model& mtd_block(unsigned number);   // mtd.cpp
Model& watchdog();                   // watchdog.cpp
Model& ds1339();                     // ds1339.cpp
Model& hi3516_reg();                 // hi3516_reg.cpp
Model& gpioi2c();                    // gpioi2c.cpp
Model& serial_port(unsigned number); // serial.cpp: 1 RS-485, 2 RS-232

std::span<Model* const> all();

} // namespace vcam::models
