// How long bytes are on a serial line; the other answers of the ports are in serial.txt.
#include "tests/sim/preload/camera.hpp"

#include <algorithm>
#include <poll.h>
#include <sys/select.h>
#include <termios.h>

namespace {

class Serial : public vcam::test::CameraTest {};

TEST_F(Serial, ABlockTakesItsLineTimeAndComesBackThroughThePlug)
{
    const std::string block(10, '\x5A');
    write_file(folder / "plugs", "ttyAMA2 loopback\n");
    const int fd = ::open("/dev/ttyAMA2", O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios settings = {};
    settings.c_cflag = B9600 | CS8 | CREAD | CLOCAL;
    ASSERT_EQ(::tcsetattr(fd, TCSANOW, &settings), 0);
    // Whether the port's line status says that nothing waits to be sent.
    const auto empty = [&] {
        int status = -1;
        EXPECT_EQ(::ioctl(fd, 0x5459, &status), 0);
        return status == 1;
    };
    // What the host takes for itself comes on top of the line's time: the best of some tries counts.
    double first = 1, whole = 1, start = 0;
    bool filled = false;
    for (int i = 0; i < 100 && (first > 0.0019 || whole > 0.0154 || !filled); ++i) {
        start = seconds();
        ASSERT_EQ(::write(fd, block.data(), block.size()), 10);
        filled |= !empty();
        pollfd wanted = {fd, POLLIN, 0};
        EXPECT_EQ(::poll(&wanted, 1, 3000), 1); // the first byte
        first = std::min(first, seconds() - start);
        ASSERT_EQ(::tcdrain(fd), 0);
        whole = std::min(whole, seconds() - start);
        EXPECT_TRUE(empty());
        ::usleep(10'000);
        std::string back(256, 0);
        back.resize(size_t(::read(fd, back.data(), back.size())));
        EXPECT_EQ(back, block);
    }
    EXPECT_NEAR(first, 0.00104, 0.0009);
    EXPECT_NEAR(whole, 0.0104, 0.005);
    EXPECT_TRUE(filled);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit = {2, 0};
    EXPECT_EQ(::select(fd + 1, &set, nullptr, nullptr, &limit), 0); // nothing more comes
    EXPECT_GE(seconds() - start, 2.01);
    ::close(fd);
}

} // namespace
