// The board's drivers: registers with their GPIO banks and wiring, the real-time clock, the I2C bus.
#include "tests/sim/preload/camera.hpp"

#include <array>
#include <cerrno>
#include <initializer_list>

using namespace vcam;

namespace {

class Board : public test::CameraTest {
protected:
    Board() : CameraTest("driver.gpioi2c=bus\n") {}
    void plan(const std::string& lines) const { write_file(folder / "pins", lines); }
};

class Registers : public Board {
protected:
    ~Registers() override { ::close(fd_); }
    uint32_t request(uint32_t number, uint32_t address, uint32_t value = 0) const
    {
        uint32_t record[2] = {address, value};
        EXPECT_EQ(::ioctl(fd_, number, record), 0) << std::hex << address;
        EXPECT_EQ(record[0], address);
        return record[1];
    }
    void set(uint32_t address, uint32_t bits) const { request(0xC0085201, address, bits); }
    void clear(uint32_t address, uint32_t bits) const { request(0xC0085202, address, bits); }
    uint32_t get(uint32_t address) const { return request(0xC0085203, address, 0xDEAD); }

    int fd_ = ::open("/dev/hi3516_reg", O_RDWR);
};
constexpr uint32_t kBank5 = 0x201A0000, kBank4 = 0x20190000, kKeys = 0x20200000;

TEST_F(Registers, SetAndClearTouchTheNamedBitsOfTheNamedWord)
{
    set(0x200F0060, 0xF0);
    set(0x200F0060, 0x83);
    clear(0x200F0060, 0x82);
    set(0xFFFFFFFC, 0x80000000);
    EXPECT_EQ(get(0x200F0060), 0x71u);
    EXPECT_EQ(get(0x200F0064), 0u);
    EXPECT_EQ(get(0xFFFFFFFC), 0x80000000u);
    EXPECT_NE(journal().find("hi3516_reg clear 0x200F0060 0x00000082\n"), std::string::npos);
    EXPECT_NE(journal().find("hi3516_reg read 0x200F0060 = 0x00000071\n"), std::string::npos);
}

TEST_F(Registers, RefusesWhatTheDriverDoesNotKnow)
{
    uint32_t record[2] = {0x200F0061, 1};
    EXPECT_EQ(::ioctl(fd_, 0xC0085201, record), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(::ioctl(fd_, 0xC0085204, record), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(::ioctl(fd_, 0xC0085203, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(::read(fd_, record, 4), -1);
    vcamsim_fault("hi3516_reg read 0 1 EIO");
    record[0] = 0x200F0060;
    EXPECT_EQ(::ioctl(fd_, 0xC0085203, record), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(::ioctl(fd_, 0xC0085203, record), 0);
}

TEST_F(Registers, TheAddressOfABanksDataIsAMask)
{
    set(kBank5 + 0x400, 0x0F);
    set(kBank5 + (0x05 << 2), 0xFF); // only lines 0 and 2 are meant
    EXPECT_EQ(get(kBank5 + 0x3FC), 0x05u);
    EXPECT_EQ(get(kBank5 + (0x04 << 2)), 0x04u);
    EXPECT_EQ(get(kBank5 + (0x02 << 2)), 0u);
    clear(kBank5 + (0x01 << 2), 0xFF);
    EXPECT_EQ(get(kBank5 + 0x3FC), 0x04u);
    clear(kBank5 + 0x400, 0x04); // an input now: nothing drives the pin
    EXPECT_EQ(get(kBank5 + 0x3FC), 0u);
    set(kBank5 + 0x400, 0x04); // what was written is kept
    EXPECT_EQ(get(kBank5 + 0x3FC), 0x04u);
}

TEST_F(Registers, InputsAreWhatTheyAreWiredTo)
{
    plan("4.0 wire 5.0  # plug\n5.1 wire 4.1\n4.1 wire 4.6\n4.2 wire 5.2\n4.2 stuck 1\n8.1 level 1\n"
         "5.3 wire 5.4\n0x101E5000.1 level 1\n0x20050080 reads 0x80000010\nnonsense\n");
    set(kBank5 + 0x400, 0x1F);
    set(kBank5 + 0x3FC, 0x0B);
    EXPECT_EQ(get(kBank4 + (0x01 << 2)), 0x01u);
    EXPECT_EQ(get(kBank4 + 0x3FC), 0x47u); // 4.0, 4.1 with 4.6 behind it, 4.2 stuck
    clear(kBank5 + 0x3FC, 0x02);
    EXPECT_EQ(get(kBank4 + 0x3FC), 0x05u);
    EXPECT_EQ(get(kKeys + 0x3FC), 0x02u);
    EXPECT_EQ(get(0x101E53FC), 0x02u);
    EXPECT_EQ(get(0x20050080), 0x80000010u);
    // An input on the wire of a high and a low output is low.
    plan("5.3 wire 5.4\n4.0 wire 5.4\n");
    EXPECT_EQ(get(kBank4 + 0x3FC), 0u);
    set(kBank5 + 0x3FC, 0x10);
    EXPECT_EQ(get(kBank4 + 0x3FC), 0x01u);
}

TEST_F(Registers, AKeyIsPressedInCameraTimeAndItsContactBounces)
{
    char lines[96];
    const double start = seconds() + 1;
    snprintf(lines, sizeof lines, "8.1 level 1\n8.1 press %.3f 0.5 2\n", start);
    plan(lines);
    std::string seen;
    const auto look_at = [&](double at) {
        ::usleep(useconds_t((start + at - seconds()) * 1e6));
        seen += get(kKeys + 8) ? '1' : '0';
    };
    for (double at : {-0.5, 0.005, 0.015, 0.025, 0.035, 0.045, 0.4, 0.505, 0.515, 0.525, 0.535, 0.545})
        look_at(at);
    EXPECT_EQ(seen, "101010010101");
}

class Rtc : public Board {
protected:
    using Record = std::array<int32_t, 7>;
    ~Rtc() override { ::close(fd_); }
    Record get() const
    {
        Record record{};
        EXPECT_EQ(::ioctl(fd_, 1, record.data()), 0);
        return record;
    }
    int set(Record record) const { return ::ioctl(fd_, 3, record.data()); }
    int fd_ = ::open("/dev/ds1339", O_RDWR);
};

TEST_F(Rtc, CountsInCameraTimeOverTheEndsOfDaysMonthsAndYears)
{
    const struct {
        Record from;
        unsigned pause;
        Record to;
    } cases[] = {
        {{2012, 2, 28, 23, 59, 58, 2}, 3, {2012, 2, 29, 0, 0, 1, 3}},
        {{2013, 2, 28, 23, 59, 58, 6}, 3, {2013, 3, 1, 0, 0, 1, 0}},
        {{2000, 12, 31, 23, 59, 59, 0}, 61, {2001, 1, 1, 0, 1, 0, 1}},
        {{2012, 1, 31, 12, 0, 0, 2}, 86400 * 30, {2012, 3, 1, 12, 0, 0, 4}},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(set(c.from), 0);
        EXPECT_EQ(get(), c.from);
        ::usleep(100'000);
        ::sleep(c.pause);
        EXPECT_EQ(get(), c.to);
    }
}

TEST_F(Rtc, RefusesWhatIsNoTimeAndKeepsTheOldOne)
{
    const Record good = {2024, 6, 30, 12, 30, 30, 0};
    ASSERT_EQ(set(good), 0);
    for (const Record& bad :
         {Record{1999, 12, 31, 0, 0, 0, 0}, Record{2100, 1, 1, 0, 0, 0, 0}, Record{2024, 0, 1, 0, 0, 0, 0},
          Record{2024, 13, 1, 0, 0, 0, 0}, Record{2024, 6, 31, 0, 0, 0, 0}, Record{2023, 2, 29, 0, 0, 0, 0},
          Record{2024, 6, 0, 0, 0, 0, 0}, Record{2024, 6, 1, 24, 0, 0, 0}, Record{2024, 6, 1, 0, 60, 0, 0},
          Record{2024, 6, 1, 0, 0, -1, 0}, Record{2024, 6, 1, 0, 0, 0, 7}}) {
        EXPECT_EQ(set(bad), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(get(), good);
    EXPECT_EQ(::ioctl(fd_, 2, nullptr), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(Rtc, ABrokenChipStaysBroken)
{
    write_file(folder / "rtc", "2012-02-28 23:59:58 2 0 stopped\n");
    ::sleep(5);
    EXPECT_EQ(get(), (Record{2012, 2, 28, 23, 59, 58, 2}));
    ASSERT_EQ(set({2012, 5, 1, 0, 0, 0, 0}), 0);
    ::sleep(5);
    EXPECT_EQ(get(), (Record{2012, 5, 1, 0, 0, 0, 0}));
    write_file(folder / "rtc", "2012-02-28 23:59:58 2 0 no-leap bcd\n");
    ASSERT_EQ(set({2012, 2, 28, 23, 59, 58, 2}), 0);
    EXPECT_EQ(get(), (Record{2012, 2, 0x28, 0x23, 0x59, 0x58, 2}));
    ::sleep(2);
    EXPECT_EQ(get(), (Record{2012, 3, 1, 0, 0, 0, 3}));
}

TEST_F(Board, I2cDevicesAnswerAtTheirAddressOnceTheirDriverIsLoaded)
{
    EXPECT_EQ(::open("/dev/gpioi2c", O_RDWR), -1);
    EXPECT_EQ(errno, ENXIO);
    write_file(folder / "modules", "other\nbus\n");
    const int fd = ::open("/dev/gpioi2c", O_RDWR);
    ASSERT_GE(fd, 0);
    std::filesystem::create_directories(folder / "i2c");
    write_file(folder / "i2c/B4", "abc");
    uint32_t word = 0xB4020077;
    EXPECT_EQ(::ioctl(fd, 1, &word), 0);
    EXPECT_EQ(word, 0xB4020063u);
    word = 0xB4FF0012;
    EXPECT_EQ(::ioctl(fd, 3, &word), 0);
    word = 0xB4FF0000;
    EXPECT_EQ(::ioctl(fd, 1, &word), 0);
    EXPECT_EQ(word, 0xB4FF0012u);
    word = 0xB4800000;
    EXPECT_EQ(::ioctl(fd, 1, &word), 0);
    EXPECT_EQ(word, 0xB4800000u);
    for (unsigned long request : {1ul, 3ul}) {
        word = 0xB5020000;
        EXPECT_EQ(::ioctl(fd, request, &word), -1);
        EXPECT_EQ(errno, ENXIO);
    }
    EXPECT_EQ(::ioctl(fd, 2, &word), -1);
    ::close(fd);
}

} // namespace
