// The way from a call to its model: descriptors, operation counts, the fault plan.
#include "sim/base/caller.hpp"
#include "sim/base/faults.hpp"
#include "sim/models/table.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/power.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace vcam {

std::string Model::backing() const { return state::path(std::string("dev/") + name); }

int Model::open(int flags)
{
    const std::string file = backing();
    ::syscall(SYS_mkdirat, AT_FDCWD, state::path("dev").c_str(), 0777);
    const int fd = raw::open(file.c_str(), (flags & ~(O_TRUNC | O_APPEND | O_EXCL)) | O_CREAT, 0666);
    return fd < 0 ? -errno : fd;
}

ssize_t Model::read(int fd, void* data, size_t size)
{
    const ssize_t n = raw::read(fd, data, size);
    return n < 0 ? -errno : n;
}

ssize_t Model::write(int fd, const void* data, size_t size)
{
    const ssize_t n = raw::write(fd, data, size);
    return n < 0 ? -errno : n;
}

ssize_t Model::pread(int fd, void* data, size_t size, int64_t offset)
{
    const ssize_t n = raw::pread(fd, data, size, offset);
    return n < 0 ? -errno : n;
}

ssize_t Model::pwrite(int fd, const void* data, size_t size, int64_t offset)
{
    const ssize_t n = raw::pwrite(fd, data, size, offset);
    return n < 0 ? -errno : n;
}

int64_t Model::seek(int fd, int64_t offset, int whence)
{
    const int64_t n = raw::seek(fd, offset, whence);
    return n < 0 ? -errno : n;
}

int Model::ioctl(int, uint32_t, void*) { return -ENOTTY; }
void* Model::map(int fd, void* address, size_t length, int protection, int flags, int64_t offset)
{
    return raw::map(address, length, protection, flags, fd, offset);
}
const char* Model::request_name(uint32_t request) const
{
    for (const RequestName& row : requests)
        if (row.request == request) return row.name;
    return "ioctl";
}
int64_t Model::request_block(uint32_t, const void*) const { return -1; }
size_t Model::record_size(uint32_t request) const { return request >> 16 & 0x3FFF; }
Record Model::record(uint32_t) const { return {}; }
int64_t Model::offset_block(int64_t) const { return -1; }
void Model::half_ioctl(int, uint32_t, void*) {}
void Model::closed() {}
Readiness Model::readiness(int) { return {}; }

namespace device {
namespace {

// A descriptor number is reused behind our back (closefrom, a closing shell): what is noted here
// holds only while the descriptor still is the file it was.
struct Identity {
    uint64_t device = 0, inode = 0;
    bool operator==(const Identity&) const = default;
};

Identity identity(int fd, const char* path)
{
    struct statx st;
    if (::syscall(SYS_statx, fd, path, path[0] ? 0 : AT_EMPTY_PATH, STATX_INO, &st) != 0) return {};
    return {uint64_t(st.stx_dev_major) << 32 | st.stx_dev_minor, st.stx_ino};
}

struct Slot {
    std::atomic<Model*> model{nullptr};
    Identity file;
};
constexpr int kSlots = 1024;
std::array<Slot, kSlots> slots;

void note(int fd, Model& model)
{
    if (fd < 0 || fd >= kSlots) return;
    slots[size_t(fd)].file = identity(fd, "");
    slots[size_t(fd)].model = &model;
}

struct Counter {
    const Model* model;
    char operation[16];
    int count;
};
std::array<Counter, 256> counters;
std::mutex counters_lock;

void count_one(const Model& model, const char* operation)
{
    const std::lock_guard hold(counters_lock);
    for (Counter& c : counters) {
        if (!c.model) {
            c.model = &model;
            snprintf(c.operation, sizeof c.operation, "%s", operation);
        }
        if (c.model == &model && strcmp(c.operation, operation) == 0) {
            ++c.count;
            return;
        }
    }
}

// One operation: counted, looked up in the plan; what the plan prevents outright is decided here.
struct Operation {
    Operation(Model& model, const char* name, int64_t block)
    {
        count_one(model, name);
        if (!power::on()) {
            error = EIO;
            return;
        }
        effect = faults::next(clock::now_ns, model.name, name, block);
        if (effect.kind == faults::Kind::signal) caller::interrupt(int(effect.value));
        if (effect.kind == faults::Kind::error) error = effect.error;
        if (effect.kind == faults::Kind::cut_before) {
            cut(model);
            error = EIO;
        }
    }
    void cut(Model& model) const
    {
        model.flush();
        power::lose(power::Loss::cut, effect.line);
    }
    [[nodiscard]] bool cut_inside() const { return effect.kind == faults::Kind::cut_inside; }
    [[nodiscard]] bool dropped() const { return effect.kind == faults::Kind::drop; }
    // A transfer of how many bytes the plan allows.
    [[nodiscard]] size_t bytes(size_t size) const
    {
        const bool half = effect.kind == faults::Kind::short_count || cut_inside();
        return half && size > 1 ? size / 2 : size;
    }
    ssize_t finish(Model& model, ssize_t result) const
    {
        using faults::Kind;
        if (effect.kind == Kind::slow)
            clock::sleep_until(clock::now_ns() + effect.value * clock::kMillisecond, true);
        if (effect.kind != Kind::cut_inside && effect.kind != Kind::cut_after) return result;
        cut(model);
        return -EIO;
    }
    faults::Effect effect;
    int error = 0;
};

constexpr int kLastErrno = 4095; // as the kernel draws the line

template<class Result> Result answer(Result result)
{
    if (result >= 0 || result < -kLastErrno) return result;
    errno = int(-result);
    return -1;
}

int64_t block_here(Model& model, int fd)
{
    const int64_t at = raw::seek(fd, 0, SEEK_CUR);
    return at < 0 ? -1 : model.offset_block(at);
}

void damage(const Operation& op, void* data, ssize_t n)
{
    if (op.effect.kind == faults::Kind::flip && n > 0) static_cast<uint8_t*>(data)[n / 2] ^= 0x10;
}

// What is written when a flip is planned for it: one bit that should stay set is cleared, as a weak cell
// does it. Only reading back finds it.
class Weakened {
public:
    Weakened(const Operation& op, const void* data, size_t size) : data_(static_cast<const uint8_t*>(data))
    {
        if (op.effect.kind != faults::Kind::flip) return;
        copy_.assign(data_, data_ + size);
        const auto byte =
            std::find_if(copy_.begin() + long(size / 2), copy_.end(), [](uint8_t b) { return b != 0; });
        if (byte != copy_.end()) *byte &= uint8_t(*byte - 1);
        data_ = copy_.data();
    }
    [[nodiscard]] const void* data() const { return data_; }

private:
    const uint8_t* data_;
    std::vector<uint8_t> copy_;
};

// camera.conf may say which module makes a device: driver.ds1339=ds_1339. Without that line the driver is
// always there.
bool driver_loaded(const Model& model)
{
    const std::string module = state::setting(std::string("driver.") + model.name);
    if (module.empty()) return true;
    return ("\n" + raw::read_text(state::path("modules"))).find("\n" + module + "\n") != std::string::npos;
}

// What a faulty driver answers: one word of its record is something else.
void corrupt_record(const Model& model, const faults::Effect& effect, uint32_t request, void* argument)
{
    const size_t at = sizeof effect.value * effect.word;
    if (argument && at + sizeof effect.value <= model.record_size(request))
        memcpy(static_cast<uint8_t*>(argument) + at, &effect.value, sizeof effect.value);
}

template<class Transfer>
ssize_t transfer(Model& model, const char* name, int64_t block, size_t size, Transfer run)
{
    const Operation op(model, name, block);
    if (op.error) return answer(ssize_t(-op.error));
    return answer(op.dropped() ? ssize_t(size) : op.finish(model, run(op, op.bytes(size))));
}

} // namespace

Model* find(const char* path)
{
    return path && strncmp(path, "/dev/", 5) == 0 ? models::find(path) : nullptr;
}

Model* of(int fd)
{
    if (fd < 0 || fd >= kSlots) return nullptr;
    Slot& slot = slots[size_t(fd)];
    Model* model = slot.model.load(std::memory_order_acquire);
    if (!model) return nullptr;
    const int e = errno;
    if (identity(fd, "") != slot.file) slot.model = model = nullptr;
    errno = e;
    return model;
}

void adopt_inherited()
{
    const auto devices = models::all(state::dir());
    for (int fd = 0; fd < 64; ++fd) {
        const Identity file = identity(fd, "");
        if (file == Identity{}) continue;
        for (Model* model : devices)
            if (identity(AT_FDCWD, model->backing().c_str()) == file) {
                note(fd, *model);
                break;
            }
    }
}

void copied(int from, int to)
{
    if (to < 0 || to >= kSlots) return;
    Model* model = of(from);
    if (model)
        note(to, *model);
    else
        slots[size_t(to)].model = nullptr;
}

int open(Model& model, int flags)
{
    const Operation op(model, "open", -1);
    if (op.error) return answer(-op.error);
    if (!driver_loaded(model)) return answer(-ENXIO);
    const int fd = op.cut_inside() ? -EIO : model.open(flags);
    if (fd >= 0) note(fd, model);
    return answer(int(op.finish(model, fd)));
}

int close(int fd)
{
    Model* model = of(fd);
    if (fd >= 0 && fd < kSlots) slots[size_t(fd)].model = nullptr;
    const int result = raw::close(fd);
    const int e = errno;
    if (model) {
        count_one(*model, "close");
        model->closed();
    }
    errno = e;
    return result;
}

ssize_t read(Model& model, int fd, void* data, size_t size)
{
    return transfer(model, "read", block_here(model, fd), size, [&](const Operation& op, size_t allowed) {
        const ssize_t n = model.read(fd, data, allowed);
        damage(op, data, n);
        return n;
    });
}

ssize_t write(Model& model, int fd, const void* data, size_t size)
{
    return transfer(model, "write", block_here(model, fd), size, [&](const Operation& op, size_t allowed) {
        const Weakened bytes(op, data, allowed);
        return model.write(fd, bytes.data(), allowed);
    });
}

ssize_t pread(Model& model, int fd, void* data, size_t size, int64_t offset)
{
    return transfer(model, "read", model.offset_block(offset), size,
                    [&](const Operation& op, size_t allowed) {
                        const ssize_t n = model.pread(fd, data, allowed, offset);
                        damage(op, data, n);
                        return n;
                    });
}

ssize_t pwrite(Model& model, int fd, const void* data, size_t size, int64_t offset)
{
    return transfer(model, "write", model.offset_block(offset), size,
                    [&](const Operation& op, size_t allowed) {
                        const Weakened bytes(op, data, allowed);
                        return model.pwrite(fd, bytes.data(), allowed, offset);
                    });
}

int64_t seek(Model& model, int fd, int64_t offset, int whence)
{
    return answer(model.seek(fd, offset, whence));
}

int ioctl(Model& model, int fd, uint32_t request, void* argument)
{
    const Operation op(model, model.request_name(request), model.request_block(request, argument));
    if (op.error) return answer(-op.error);
    if (op.dropped()) return 0;
    if (op.cut_inside()) model.half_ioctl(fd, request, argument);
    const int result = op.cut_inside() ? 0 : model.ioctl(fd, request, argument);
    if (result == 0 && op.effect.kind == faults::Kind::word)
        corrupt_record(model, op.effect, request, argument);
    return answer(int(op.finish(model, result)));
}

void* map(Model& model, int fd, void* address, size_t length, int protection, int flags, int64_t offset)
{
    const Operation op(model, "mmap", -1);
    void* mapped =
        op.error || op.cut_inside() ? MAP_FAILED : model.map(fd, address, length, protection, flags, offset);
    if (op.error) errno = op.error;
    if (!op.error && answer(int(op.finish(model, 0))) < 0) return MAP_FAILED;
    return mapped;
}

void forget_counts()
{
    const std::lock_guard hold(counters_lock);
    counters = {};
}

void flush_all()
{
    for (Model* model : models::built_in()) model->flush();
}

int count(const char* name, const char* operation)
{
    const std::lock_guard hold(counters_lock);
    for (const Counter& c : counters)
        if (c.model && strcmp(c.model->name, name) == 0 && strcmp(c.operation, operation) == 0)
            return c.count;
    return 0;
}

} // namespace device
} // namespace vcam
