// A serial port and its line, byte by byte in camera time.
#include "sim/board/serial_line.hpp"
#include "sim/clock/journal.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

namespace vcam::serial {
namespace {

constexpr uint32_t kMagic = 0x31534356; // "VCS1"
constexpr int64_t kMs = 1'000'000;
// On one pair of wires a loop-back cannot answer while it is being sent to: it repeats what it got when the
// line has been quiet for so long. Generous, so that a busy machine does not make the camera deaf.
constexpr int64_t kTurnaroundMs = 200;
constexpr size_t kRequest = 10;

constexpr struct {
    uint32_t code;
    int32_t baud;
} kSpeeds[] = {{B1200, 1200},   {B2400, 2400},   {B4800, 4800},   {B9600, 9600},
               {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200}};

int32_t baud_of(const Settings& s)
{
    for (const auto& row : kSpeeds)
        if (row.code == (s.cflag & (CBAUD | CBAUDEX))) return row.baud;
    return 9600;
}

int data_bits(const Settings& s)
{
    constexpr int kBits[] = {5, 6, 7, 8};
    return kBits[(s.cflag & CSIZE) >> 4];
}

char parity(const Settings& s)
{
    if (!(s.cflag & PARENB)) return 'N';
    return s.cflag & PARODD ? 'O' : 'E';
}

bool among(const std::vector<uint32_t>& numbers, uint32_t number)
{
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

std::string hex(const uint8_t* data, size_t size)
{
    std::string text;
    char digits[4];
    for (size_t i = 0; i < std::min<size_t>(size, 32); ++i) {
        snprintf(digits, sizeof digits, " %02X", data[i]);
        text += digits;
    }
    return size > 32 ? text + " ..." : text;
}

} // namespace

SerialLine::SerialLine(Record& record, const std::string& port, bool rs485, int64_t now_ns)
    : record_(record), port_(port), rs485_(rs485), now_(now_ns)
{
    if (!parse_plug(plugged(port), plug_).empty()) plug_ = {};
    advance();
}

// A start bit, the data, parity, the stop bits.
int64_t SerialLine::byte_ns() const
{
    const Settings& s = record_.settings;
    const int bits = 1 + data_bits(s) + (parity(s) != 'N') + (s.cflag & CSTOPB ? 2 : 1);
    return int64_t(1'000'000'000) * bits / baud_of(s);
}

bool SerialLine::sending() const { return !rs485_ || !(record_.lines & TIOCM_RTS); }

// Modem lines have not changed since the last call, so what happened meanwhile happened under them.
void SerialLine::advance()
{
    while (!record_.out.empty() && record_.out.front().end_ns <= now_) {
        const WireByte byte = record_.out.front();
        record_.out.pop();
        if (!sending() || byte.broken)
            ++record_.lost;
        else
            reach_far_end(byte);
        if (rs485_ && plug_.far_end == FarEnd::loopback) repeat_when_quiet(byte.end_ns);
    }
    while (!record_.wire.empty() && record_.wire.front().end_ns <= now_) {
        arrive(record_.wire.front());
        record_.wire.pop();
    }
}

void SerialLine::arrive(const WireByte& byte)
{
    const bool hears = !rs485_ || (record_.lines & TIOCM_RTS);
    if (!hears || byte.broken || record_.in.room() == 0) {
        ++record_.lost;
        return;
    }
    record_.in.push(byte.value);
    ++record_.received;
}

void SerialLine::far_end_sends(uint8_t value, int64_t start_ns)
{
    const uint32_t number = record_.far_count++;
    WireByte byte = {std::max(start_ns, record_.wire_free_ns) + byte_ns(), value, 0};
    record_.wire_free_ns = byte.end_ns;
    if (among(plug_.wrong, number)) byte.value ^= 0x01;
    if (!among(plug_.lost, number)) record_.wire.push(byte);
}

void SerialLine::reach_far_end(const WireByte& byte)
{
    ++record_.sent;
    if (plug_.far_end == FarEnd::block) block_takes(byte);
    if (plug_.far_end != FarEnd::loopback) return;
    if (rs485_)
        record_.request[record_.request_count++] = byte.value;
    else // a wire from one pin to the other: the byte is back as it leaves
        far_end_sends(byte.value, byte.end_ns - byte_ns() + std::max<int64_t>(plug_.late_ms, 0) * kMs);
}

void SerialLine::repeat_when_quiet(int64_t quiet_ns)
{
    if (!record_.out.empty() && record_.request_count < sizeof record_.request) return;
    const int64_t start = quiet_ns + (plug_.late_ms < 0 ? kTurnaroundMs : plug_.late_ms) * kMs;
    for (uint32_t i = 0; i < record_.request_count; ++i) far_end_sends(record_.request[i], start);
    record_.request_count = 0;
}

// A frame is FF, the command, 01, six zeros and the command again; the block hears nothing else.
void SerialLine::block_takes(const WireByte& byte)
{
    if (describe(record_.settings).rfind("9600 8N1", 0) != 0) return;
    if (record_.request_count == 0 && byte.value != 0xFF) return;
    uint8_t* const frame = record_.request;
    frame[record_.request_count++] = byte.value;
    if (record_.request_count < kRequest) return;
    record_.request_count = 0;
    const uint8_t wanted[kRequest] = {0xFF, frame[1], 0x01, 0, 0, 0, 0, 0, 0, frame[1]};
    const bool good = memcmp(frame, wanted, kRequest) == 0;
    if (!good) {
        journal::add(port_, "block got no request:" + hex(frame, kRequest));
        return;
    }
    journal::add(port_, "block asked" + hex(frame + 1, 1));
    for (const Reply& reply : replies_of(port_)) {
        if (reply.command != frame[1]) continue;
        const int64_t after = plug_.late_ms < 0 ? reply.after_ms : plug_.late_ms;
        for (uint8_t value : reply.bytes) far_end_sends(value, byte.end_ns + after * kMs);
        return;
    }
}

void SerialLine::opened()
{
    record_.lines |= TIOCM_RTS | TIOCM_DTR;
    record_.far_count = 0;
    record_.request_count = 0;
}

size_t SerialLine::write(const uint8_t* data, size_t size)
{
    size_t taken = 0;
    for (; taken < size && record_.out.room(); ++taken) {
        const int64_t start = record_.out.empty() ? now_ : std::max(now_, record_.out.back().end_ns);
        record_.out.push({start + byte_ns(), data[taken], 0});
    }
    if (taken) journal::add(port_, "write" + hex(data, taken));
    return taken;
}

bool SerialLine::readable() const
{
    if (record_.in.empty()) return false;
    if (!(record_.settings.lflag & ICANON)) return true;
    // In line mode nothing is there before a line's end is.
    for (uint32_t i = 0; i < record_.in.count; ++i)
        if (record_.in.items[(record_.in.first + i) % record_.in.items.size()] == '\n') return true;
    return false;
}

size_t SerialLine::read(uint8_t* data, size_t size)
{
    size_t count = 0;
    if (!readable()) return 0;
    while (count < size && !record_.in.empty()) {
        data[count++] = record_.in.front();
        record_.in.pop();
        if ((record_.settings.lflag & ICANON) && data[count - 1] == '\n') break;
    }
    return count;
}

void SerialLine::set_lines(uint32_t lines)
{
    if (rs485_ && ((record_.lines ^ lines) & TIOCM_RTS)) {
        if (!record_.out.empty() && record_.out.front().end_ns - byte_ns() < now_)
            record_.out.front().broken = 1;
        if (!record_.wire.empty() && record_.wire.front().end_ns - byte_ns() < now_)
            record_.wire.front().broken = 1;
    }
    record_.lines = lines;
    journal::add(port_, lines & TIOCM_RTS ? "RTS set" : "RTS clear");
}

void SerialLine::flush(bool in, bool out)
{
    if (in) record_.in.first = record_.in.count = 0;
    if (out) record_.out.first = record_.out.count = 0;
}

int64_t SerialLine::sent_all_ns() const
{
    Record& r = record_;
    return r.out.empty() ? now_ : r.out.back().end_ns;
}

int64_t SerialLine::next_change_ns() const
{
    Record& r = record_;
    int64_t next = INT64_MAX;
    if (!r.out.empty()) next = r.out.front().end_ns;
    if (!r.wire.empty()) next = std::min(next, r.wire.front().end_ns);
    return next;
}

void reset(Record& record)
{
    memset(static_cast<void*>(&record), 0, sizeof record);
    record.settings = {ICRNL | IXON,
                       OPOST | ONLCR,
                       B9600 | CS8 | CREAD | HUPCL | CLOCAL,
                       ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | ECHOKE | IEXTEN,
                       0,
                       {3, 28, 127, 21, 4, 0, 1, 0, 17, 19, 26, 0, 18, 15, 23, 22}};
    record.magic = kMagic;
}

std::string describe(const Settings& s)
{
    char text[64];
    const bool raw = !(s.lflag & (ICANON | ECHO | ISIG)) && !(s.oflag & OPOST);
    snprintf(text, sizeof text, "%d %d%c%c %s", baud_of(s), data_bits(s), parity(s),
             s.cflag & CSTOPB ? '2' : '1', raw ? "raw" : "line mode");
    return text;
}

namespace {

// Not the port's own file: closing this one would end the record locks that a program has on its port.
std::string file_of(const std::string& port) { return state::path("dev/" + port + ".line"); }

} // namespace

Held::Held(const std::string& port)
{
    ::syscall(SYS_mkdirat, AT_FDCWD, state::path("dev").c_str(), 0777);
    fd_ = raw::open(file_of(port).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd_ >= 0) {
        raw::flock(fd_, LOCK_EX);
        const char zero = 0;
        if (raw::seek(fd_, 0, SEEK_END) < int64_t(sizeof(Record)))
            raw::pwrite(fd_, &zero, 1, sizeof(Record) - 1);
        map_ = ::mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        if (map_ == MAP_FAILED) map_ = nullptr;
    }
    if (!map_) own_ = std::make_unique<Record>();
    record_ = map_ ? static_cast<Record*>(map_) : own_.get();
    if (record_->magic != kMagic) reset(*record_);
}

Held::~Held()
{
    if (map_) ::munmap(map_, sizeof(Record));
    if (fd_ >= 0) raw::close(fd_);
}

void power_on()
{
    for (const std::string port : kPorts) {
        ::unlink(state::path("dev/" + port).c_str());
        ::unlink(file_of(port).c_str());
    }
}

} // namespace vcam::serial
