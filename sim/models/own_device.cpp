// Devices of one's own: the record of a shared object as a model.
//
// Each opening has a descriptor of the backing file, whose position is the opening's number, as dup, fork and exec
// keep it. The kernel releases a lock on the byte of that number with the opening's last descriptor, also when the
// program is killed: so it is known to be over.
#include "sim/models/own_device.hpp"
#include "sim/models/request_device.hpp"
#include "sim/models/shared_page.hpp"
#include "sim/base/caller.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace vcam::models {
namespace {

constexpr uint32_t kVersion = 0x314E574F; // "OWN1"
constexpr int64_t kLook = 2'000'000;      // host time: what another process or a person may have changed
constexpr int kOwnCode = -4096;           // a driver's own, and what is below it
constexpr int kLastServed = -511;         // of errno numbers that a server may answer to the kernel
constexpr uint32_t kAlwaysReady = POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM;

std::atomic<FindCode> find_code{nullptr};
std::atomic<Requests> requests_wanted{Requests::of_file};

struct OwnPage {
    PageHead head;
    uint32_t openings; // a bit each
    uint32_t pad[3];
    // the state follows
};
static_assert(sizeof(OwnPage) == 32 && VCAM_DEVICE_OPENINGS == 32);

void add_line(const vcam_call* call, const char* text);
size_t read_input(const vcam_call* call, char* text, size_t size);

// What a model gets, and whose it is.
struct Call : vcam_call {
    const char* name;
};

// Texts and rows as the base class points to them.
struct Names {
    explicit Names(const device_file::Device& found) : device(found)
    {
        for (const vcam_request& row : device.requests()) requests.push_back({row.number, row.name});
    }
    const device_file::Device device;
    std::vector<RequestName> requests;
};

class OwnDevice final : private Names, public Model {
public:
    OwnDevice(const device_file::Device& found)
        : Names(found), Model(device.record.path, device.record.name, Names::requests),
          page_(std::string("devices/") + name + ".state", sizeof(OwnPage) + device.record.state_size,
                kVersion)
    {
    }

    int open(int flags) override
    {
        const vcam_device* code = code_of();
        if (!code) return -ENXIO;
        const int fd = Model::open(flags);
        if (fd < 0) return fd;
        const int result = begin(*code, fd);
        if (result < 0) raw::close(fd);
        return result < 0 ? result : fd;
    }

    ssize_t read(int fd, void* data, size_t size) override
    {
        return transfer(fd, O_WRONLY, &vcam_device::read, [&](auto function, Call& call) {
            return function(&call, data, uint32_t(std::min<size_t>(size, VCAM_DEVICE_BYTES)));
        });
    }
    ssize_t write(int fd, const void* data, size_t size) override
    {
        return transfer(fd, O_RDONLY, &vcam_device::write, [&](auto function, Call& call) {
            return function(&call, data, uint32_t(std::min<size_t>(size, VCAM_DEVICE_BYTES)));
        });
    }
    ssize_t pread(int, void*, size_t, int64_t) override { return -ESPIPE; }
    ssize_t pwrite(int, const void*, size_t, int64_t) override { return -ESPIPE; }
    int64_t seek(int, int64_t, int) override { return -ESPIPE; }
    void* map(int, void*, size_t, int, int, int64_t) override
    {
        errno = ENODEV;
        return reinterpret_cast<void*>(-1); // MAP_FAILED
    }

    int ioctl(int fd, uint32_t number, void* argument) override
    {
        const vcam_request* row = row_of(number);
        const vcam_device* code = code_of();
        if (!row || !code || !code->request) return -ENOTTY;
        const size_t given = device_file::given(*row), returned = device_file::returned(*row);
        std::vector<char> record(std::max(given, returned));
        if (!record.empty() && !fetch(argument, record.data(), given)) return -EFAULT;
        const int result = ask(fd, true, [&](Call& call) {
            call.value = record.empty() ? reinterpret_cast<uintptr_t>(argument) : 0;
            return code->request(&call, number, record.empty() ? nullptr : record.data());
        });
        const bool back = result >= 0 && returned;
        return back && !put(argument, record.data(), returned) ? -EFAULT : result;
    }

    void closed() override
    {
        if (const vcam_device* code = code_of()) {
            const clock::SignalHold hold;
            OwnPage* page = lock();
            end_lost(*code, *page);
            unlock(page);
        }
    }

    // Of a device whose readiness the model does not say, the descriptor is ready as a file is.
    bool has_readiness() const override
    {
        const vcam_device* code = code_of();
        return code && code->ready;
    }
    Readiness readiness(int fd) override
    {
        const vcam_device* code = code_of();
        if (!code || !code->ready) return {short(kAlwaysReady)};
        const clock::SignalHold hold;
        OwnPage* page = lock();
        Call call = call_of(page, fd);
        uint32_t events = code->ready(&call);
        unlock(page);
        if (events & POLLIN) events |= POLLRDNORM;
        if (events & POLLOUT) events |= POLLWRNORM;
        return {short(events), later(call.changes_ns)};
    }

    size_t record_size(uint32_t number) const override
    {
        const vcam_request* row = row_of(number);
        return row ? std::max(device_file::given(*row), device_file::returned(*row)) : 0;
    }
    Record record(uint32_t number) const override
    {
        const vcam_request* row = row_of(number);
        return row ? Record{device_file::given(*row), device_file::returned(*row)} : Record{};
    }

    void retire() { page_.retire(); }

private:
    [[nodiscard]] const vcam_request* row_of(uint32_t number) const
    {
        for (const vcam_request& row : device.requests())
            if (row.number == number) return &row;
        return nullptr;
    }

    // Looked for once a process. What it gets must be the record that the camera's tools have read.
    const vcam_device* code_of() const
    {
        const std::lock_guard hold(code_lock_);
        if (looked_) return code_;
        looked_ = true;
        std::string reason = "this program has no way to the model's code";
        const FindCode find = find_code;
        code_ = find ? find(device, reason) : nullptr;
        if (code_ && memcmp(code_, &device.record, device_file::kReadable) != 0) {
            code_ = nullptr;
            reason = "the model's code is not that of the camera's file";
        }
        if (!code_) journal::add(name, reason);
        return code_;
    }

    OwnPage* lock() { return reinterpret_cast<OwnPage*>(page_.lock(SharedPage::Wait::yes)); }
    static void unlock(OwnPage* page) { SharedPage::unlock(&page->head); }

    Call call_of(OwnPage* page, int fd) const
    {
        Call call = {};
        call.state = page + 1;
        call.opening =
            fd < 0 ? 0
                   : uint32_t(std::clamp<int64_t>(raw::seek(fd, 0, SEEK_CUR), 0, VCAM_DEVICE_OPENINGS - 1));
        call.flags = fd < 0 ? 0 : raw::flags(fd);
        call.process = caller::pid();
        call.now_ns = clock::now_ns();
        call.changes_ns = INT64_MAX;
        call.journal = add_line;
        call.input = read_input;
        call.name = name;
        return call;
    }

    int begin(const vcam_device& code, int fd)
    {
        const clock::SignalHold hold;
        OwnPage* page = lock();
        const int result = begin_locked(code, fd, *page);
        unlock(page);
        return result;
    }

    int begin_locked(const vcam_device& code, int fd, OwnPage& page)
    {
        end_lost(code, page);
        uint32_t opening = 0;
        while (opening < VCAM_DEVICE_OPENINGS && page.openings & 1u << opening) ++opening;
        if (opening == VCAM_DEVICE_OPENINGS) return -EBUSY;
        if (raw::seek(fd, opening, SEEK_SET) < 0 || !raw::lock_byte(fd, opening)) return -errno;
        Call call = call_of(&page, fd);
        const int result = code.open ? checked(code.open(&call)) : 0;
        if (result >= 0) page.openings |= 1u << opening;
        return result;
    }

    // Openings whose last descriptor is gone.
    void end_lost(const vcam_device& code, OwnPage& page)
    {
        if (!page.openings) return;
        const raw::Fd probe(raw::open(backing().c_str(), O_RDWR | O_CLOEXEC));
        for (uint32_t opening = 0; probe && opening < VCAM_DEVICE_OPENINGS; ++opening) {
            if (!(page.openings & 1u << opening) || raw::byte_locked(probe.get(), opening)) continue;
            page.openings &= ~(1u << opening);
            Call call = call_of(&page, -1);
            call.opening = opening;
            if (code.close) code.close(&call);
        }
    }

    template<class Function, class Run>
    ssize_t transfer(int fd, int refused, Function vcam_device::*which, Run run)
    {
        if ((raw::flags(fd) & O_ACCMODE) == refused) return -EBADF;
        const vcam_device* code = code_of();
        if (!code || !(code->*which)) return -EINVAL;
        return ask(fd, false, [&](Call& call) { return run(code->*which, call); });
    }

    // Until there is an answer, as long as the program's descriptor waits.
    template<class Run> int ask(int fd, bool own_codes, Run run)
    {
        const clock::SignalHold hold; // signals come in while the kernel waits, where they end the wait
        std::optional<clock::Sleeper> sleeper;
        for (int64_t until = 0;;) {
            OwnPage* page = lock();
            Call call = call_of(page, fd);
            const int32_t result = run(call);
            unlock(page);
            if (result != VCAM_DEVICE_WAIT) return own_codes && result <= kOwnCode ? result : checked(result);
            if (call.flags & O_NONBLOCK) return -EAGAIN;
            if (!sleeper || until != call.changes_ns)
                sleeper.emplace(later(until = call.changes_ns), clock::Wait::plain);
            const int64_t pause = std::min(sleeper->try_skip(), kLook);
            if (!sleeper->over() && raw::poll(nullptr, 0, pause, &hold.before()) < 0) return -EINTR;
            if (sleeper->over()) sleeper.reset();
        }
    }

    // A time that is over already would be waited for without a pause.
    static int64_t later(int64_t time_ns) { return std::max(time_ns, clock::now_ns() + clock::kTick); }

    // Under a server the kernel would drop the answer, so it is refused everywhere.
    int checked(int32_t result) const
    {
        if (result >= kLastServed) return result;
        journal::add(name, "the model answers " + std::to_string(result) +
                               ", which is no errno number below 512: EIO");
        return -EIO;
    }

    // A server has the program's record already; elsewhere it is the program's own memory, which may not be there.
    static bool fetch(const void* from, void* to, size_t size)
    {
        if (!from) return false;
        if (caller::is_other()) return memcpy(to, from, size);
        return caller::load(from, to, size);
    }
    static bool put(void* to, const void* from, size_t size)
    {
        if (!to) return false;
        if (caller::is_other()) return memcpy(to, from, size);
        return caller::store(to, from, size);
    }

    SharedPage page_;
    mutable std::mutex code_lock_;
    mutable bool looked_ = false;
    mutable const vcam_device* code_ = nullptr;
};

void add_line(const vcam_call* call, const char* text)
{
    journal::add(static_cast<const Call*>(call)->name, text);
}

size_t read_input(const vcam_call* call, char* text, size_t size)
{
    const std::string all =
        raw::read_text(device_file::input(state::dir(), static_cast<const Call*>(call)->name));
    if (size == 0) return all.size();
    const size_t part = std::min(all.size(), size - 1);
    memcpy(text, all.data(), part);
    text[part] = '\0';
    return all.size();
}

struct Camera {
    std::vector<std::unique_ptr<OwnDevice>> devices;
    std::vector<Model*> models;
};

void take_code_requests(device_file::Device& device)
{
    std::string reason;
    const FindCode find = find_code;
    const vcam_device* code = find && requests_wanted == Requests::of_code ? find(device, reason) : nullptr;
    if (!code) return;
    if (const std::string problem = device_file::inspect(*code); !problem.empty())
        fail("the model of %s: %s", device.record.name, problem.c_str());
    memcpy(static_cast<void*>(&device.record), code, device_file::kReadable);
}

// Throws where one cannot be read.
std::unique_ptr<Camera> make(const std::string& folder)
{
    auto out = std::make_unique<Camera>();
    for (device_file::Device& device : device_file::of(folder)) {
        take_code_requests(device);
        out->devices.push_back(std::make_unique<OwnDevice>(device));
        out->models.push_back(out->devices.back().get());
    }
    return out;
}

} // namespace

std::span<Model* const> own_devices(const std::string& folder)
{
    static auto& lock = *new std::mutex; // never destroyed: late callers run during exit
    static auto& cameras = *new std::map<std::string, std::unique_ptr<Camera>>;
    if (folder.empty()) return {};
    const std::lock_guard hold(lock);
    std::unique_ptr<Camera>& camera = cameras[folder];
    if (camera) return camera->models;
    try {
        camera = make(folder);
    } catch (const std::exception&) { // the camera's start says what
        camera = std::make_unique<Camera>();
    }
    return camera->models;
}

void use_code(FindCode find, Requests requests)
{
    find_code = find;
    requests_wanted = requests;
}

void power_on_own_devices()
{
    const auto camera = make(state::dir());
    for (const auto& device : camera->devices) device->retire();
}

} // namespace vcam::models
