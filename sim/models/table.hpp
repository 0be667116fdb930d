// The simulated devices. A new one is a file of its own, a declaration and a row here.
#pragma once

#include "sim/base/faults.hpp"
#include "sim/models/model.hpp"

#include <span>
#include <vector>

namespace vcam::models {

Model& mtd(unsigned number);         // mtd.cpp
Model& mtd_block(unsigned number);   // mtd.cpp
Model& watchdog();                   // watchdog.cpp
Model& ds1339();                     // ds1339.cpp
Model& hi3516_reg();                 // hi3516_reg.cpp
Model& gpioi2c();                    // gpioi2c.cpp
Model& serial_port(unsigned number); // serial.cpp: 1 RS-485, 2 RS-232

Model& media_sys();  // media_sys.cpp
Model& media_mmz();  // media_mmz.cpp
Model& mem();        // media_mmz.cpp
Model& media_vb();   // media_vb.cpp
Model& media_ai();   // media_ai.cpp
Model& media_ao();   // media_ao.cpp
Model& media_aenc(); // media_codecs.cpp
Model& media_adec(); // media_codecs.cpp
Model& media_log();  // media_codecs.cpp
Model& acodec();     // media_codecs.cpp

// The camera's own, then those of one's own that the folder has (sim/models/own_device.hpp).
std::vector<Model*> all(const std::string& folder);
std::span<Model* const> built_in();
// Of the state folder in use.
Model* find(const char* path);
// What a fault plan of that camera may name: the devices with their operations, commands and library calls.
std::vector<faults::Target> fault_targets(const std::string& folder);

} // namespace vcam::models
