// A camera around each case: a state folder of its own and the simulated drivers in this process.
#pragma once

#include "sim/preload/vcamsim.h"
#include "tests/support/run.hpp"
#include "tests/support/temp_folder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam::test {

inline constexpr char kFlash[] = "mtd1=nor,256K,64K,1\nmtd2=nand,128K,16K,2K\nmtd3=nor,1M,64K,1\n";

class CameraTest : public testing::Test {
protected:
    explicit CameraTest(std::string_view configuration = kFlash, const char* device = nullptr)
    {
        write_file(folder / "camera.conf", configuration);
        if (device) {
            std::filesystem::create_directories(folder / "devices");
            std::filesystem::copy(
                device, folder / (sizeof(void*) == 8 ? "devices/light-64.so" : "devices/light-32.so"));
        }
        std::filesystem::create_directories(folder / "flash");
        if (vcamsim_start(folder.path().c_str(), 0) != 0) std::abort();
    }
    ~CameraTest() override { vcamsim_stop(); }

    [[nodiscard]] std::string image(int number) const
    {
        return read_file(folder / ("flash/mtd" + std::to_string(number)));
    }
    [[nodiscard]] std::string journal() const { return read_file(folder / "journal"); }
    [[nodiscard]] static double seconds() { return double(vcamsim_now_us()) / 1e6; }
    // Runs a program of the host in the camera, as the executable runs there.
    [[nodiscard]] int run(const std::string& command) const
    {
        const std::string line =
            "VCAM_STATE='" + folder.path() + "' LD_PRELOAD='" VCAM_PRELOAD "/$LIB/libvcamsim.so' " + command;
        // The shell that sets the environment is not in the camera itself.
        return in_child([&] { return ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr); });
    }

    TempFolder folder;
};

} // namespace vcam::test
