// A device of one's own: what the simulator does for a model, seen with the example's.
#include "common/base/fd.hpp"
#include "docs/examples/own-device/light_uapi.h"
#include "sim/base/vcam_device.h"
#include "tests/sim/preload/camera.hpp"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <vector>

using namespace vcam;

namespace {

class OwnDevice : public test::CameraTest {
protected:
    OwnDevice() : CameraTest(std::string(test::kFlash) + "device=light\n", LIGHT) {}
    void lux(std::string_view lines) const { write_file(folder / "devices/light.input", lines); }
    // "dark 10", or the error.
    static std::string read_event(int fd)
    {
        light_event event = {};
        if (::read(fd, &event, sizeof event) < 0) return strerrorname_np(errno);
        return (event.dark ? "dark " : "bright ") + std::to_string(event.lux);
    }
};

TEST_F(OwnDevice, ReadWaitsForTheTimeAtWhichTheModelsAnswerChanges)
{
    lux("0 300\n3 10\n");
    const zep::Fd fd(::open("/dev/light", O_RDWR));
    const zep::Fd impatient(::open("/dev/light", O_RDONLY | O_NONBLOCK));
    for (const int each : {fd.get(), impatient.get()}) EXPECT_EQ(read_event(each), "bright 300");
    EXPECT_EQ(read_event(impatient.get()), "EAGAIN");
    EXPECT_LT(seconds(), 2.5);
    EXPECT_EQ(read_event(fd.get()), "dark 10");
    EXPECT_GE(seconds(), 3);
    EXPECT_LT(seconds(), 3.5);
    pollfd wait = {fd.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&wait, 1, 5000), 0);
    EXPECT_GE(seconds(), 8);
    EXPECT_EQ(read_event(impatient.get()), "dark 10");
}

TEST_F(OwnDevice, WhatAModelLacksOrAProgramDoesWrongIsRefusedAsByTheKernel)
{
    const zep::Fd fd(::open("/dev/light", O_RDWR)), reader(::open("/dev/light", O_RDONLY));
    light_limit limit = {30, 60};
    char bytes[8] = {};
    auto* nowhere = reinterpret_cast<void*>(16);
    const auto refused = [](auto result) { return result == decltype(result)(-1) ? errno : 0; };
    EXPECT_EQ(refused(::write(reader.get(), bytes, sizeof bytes)), EBADF);
    EXPECT_EQ(refused(::write(fd.get(), bytes, sizeof bytes)), EINVAL);
    EXPECT_EQ(refused(::read(fd.get(), bytes, 1)), EINVAL);
    EXPECT_EQ(refused(::lseek(fd.get(), 0, SEEK_SET)), ESPIPE);
    EXPECT_EQ(refused(::pread(fd.get(), bytes, sizeof bytes, 0)), ESPIPE);
    EXPECT_EQ(refused(::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd.get(), 0)), ENODEV);
    EXPECT_EQ(refused(::ioctl(fd.get(), _IO('L', 9), 0)), ENOTTY);
    EXPECT_EQ(refused(::ioctl(fd.get(), LIGHT_SET_LIMIT, nullptr)), EFAULT);
    EXPECT_EQ(refused(::ioctl(fd.get(), LIGHT_SET_LIMIT, nowhere)), EFAULT);
    EXPECT_EQ(refused(::ioctl(fd.get(), LIGHT_GET_LIMIT, nowhere)), EFAULT);
    EXPECT_EQ(refused(::ioctl(fd.get(), LIGHT_CALIBRATE, 300)), ERANGE);
    EXPECT_EQ(refused(::ioctl(fd.get(), LIGHT_CALIBRATE, 150)), 0);
    EXPECT_EQ(refused(::ioctl(fd.get(), LIGHT_SET_LIMIT, &limit)), 0);
    EXPECT_EQ(read_event(fd.get()), "bright 450");
}

TEST_F(OwnDevice, AnOpeningEndsWithItsLastDescriptorOrItsProgram)
{
    zep::Fd fd(::open("/dev/light", O_RDONLY | O_NONBLOCK));
    EXPECT_EQ(read_event(fd.get()), "bright 300");
    const zep::Fd copy(::dup(fd.get()));
    fd.reset();
    EXPECT_EQ(read_event(copy.get()), "EAGAIN");
    const auto take_all = [] {
        int count = 0;
        while (::open("/dev/light", O_WRONLY) >= 0) ++count;
        return errno == EBUSY ? count : -1;
    };
    EXPECT_EQ(in_child(take_all), VCAM_DEVICE_OPENINGS - 1);
    EXPECT_EQ(in_child(take_all), VCAM_DEVICE_OPENINGS - 1);
    EXPECT_EQ(read_event(copy.get()), "EAGAIN");
}

TEST_F(OwnDevice, ASignalEndsAWait)
{
    struct sigaction wake = {}, before = {};
    wake.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &wake, &before);
    const zep::Fd fd(::open("/dev/light", O_RDONLY));
    EXPECT_EQ(read_event(fd.get()), "bright 300");
    const itimerval soon = {{}, {0, 50'000}};
    ::setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(read_event(fd.get()), "EINTR");
    ::sigaction(SIGALRM, &before, nullptr);
}

TEST_F(OwnDevice, StateIsTheCamerasUntilItIsSwitchedOff)
{
    const auto limit = [] {
        const zep::Fd fd(::open("/dev/light", O_RDWR));
        light_limit now = {};
        EXPECT_EQ(::ioctl(fd.get(), LIGHT_GET_LIMIT, &now), 0);
        return now.bright_lux;
    };
    const auto set = [] {
        const zep::Fd fd(::open("/dev/light", O_WRONLY));
        light_limit wanted = {30, 60};
        return ::ioctl(fd.get(), LIGHT_SET_LIMIT, &wanted);
    };
    EXPECT_EQ(in_child(set), 0);
    EXPECT_EQ(limit(), 60u);
    ASSERT_EQ(vcamsim_fault("light getlimit 0 1 word1=77"), 0);
    EXPECT_EQ(limit(), 77u);
    EXPECT_EQ(vcamsim_fault("light dim 0 1 EIO"), -1);
    ASSERT_EQ(vcamsim_start(folder.path().c_str(), 0), 0);
    EXPECT_EQ(limit(), 0u);
}

} // namespace
