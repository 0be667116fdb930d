// What a simulated device is, and the calls that reach it. A model is written once; the preload
// library hands it the calls of programs, a test calls `device::` itself.
//
// Each open descriptor of a device is a real descriptor of a backing file (or pseudo-terminal), so that
// closing, duplicating, inheriting and mapping work as they are. A model overrides only what such a file
// cannot do. Models live as long as the process; calls come from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>

namespace vcam {

// What one look at a descriptor finds: the poll events that hold, and when the answer may change.
struct Readiness {
    short events = 0;
    int64_t changes_ns = INT64_MAX; // camera time
};

struct RequestName {
    uint32_t request;
    const char* name;       // in the fault plan
    bool has_block = false; // Model::request_block() knows the erase block that it is about
};

// Bytes of a request's record that the program gives and gets.
struct Record {
    size_t in = 0, out = 0;
};

// Results below zero are negative errno numbers.
class Model {
public:
    constexpr Model(const char* device_path, const char* device_name,
                    std::span<const RequestName> request_names = {})
        : path(device_path), name(device_name), requests(request_names)
    {
    }
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    const char* const path; // in the camera
    const char* const name; // in the fault plan and the journal
    const std::span<const RequestName> requests;

    // The file behind the device; made when it is missing.
    [[nodiscard]] virtual std::string backing() const;
    // A new descriptor. The flags are those of the program; O_CREAT, O_TRUNC and O_APPEND mean nothing
    // to a device.
    virtual int open(int flags);
    virtual ssize_t read(int fd, void* data, size_t size);
    virtual ssize_t write(int fd, const void* data, size_t size);
    virtual ssize_t pread(int fd, void* data, size_t size, int64_t offset);
    virtual ssize_t pwrite(int fd, const void* data, size_t size, int64_t offset);
    virtual int64_t seek(int fd, int64_t offset, int whence);
    // A result below -4095 is a driver's own code: the request returns it, and errno stays.
    virtual int ioctl(int fd, uint32_t request, void* argument);
    // As mmap would: MAP_FAILED with errno.
    virtual void* map(int fd, void* address, size_t length, int protection, int flags, int64_t offset);
    // How a request is called in the fault plan, and the erase block it is about (-1: none).
    [[nodiscard]] const char* request_name(uint32_t request) const;
    // Whether it can be read and written like a file.
    [[nodiscard]] virtual bool has_bytes() const { return true; }
    virtual int64_t request_block(uint32_t request, const void* argument) const;
    // Bytes of the record that a request's argument points to, for a plan that changes what comes back.
    virtual size_t record_size(uint32_t request) const;
    // Of a request whose number does not say it; nothing where the model has no row for it.
    virtual Record record(uint32_t request) const;
    virtual int64_t offset_block(int64_t offset) const;
    // Power fails in the middle of the request: what has happened by then.
    virtual void half_ioctl(int fd, uint32_t request, void* argument);
    // The descriptor has just been closed; others for the same opening may be left.
    virtual void closed();
    // Whether the model, and not its backing file, says when reading or writing would wait.
    [[nodiscard]] virtual bool has_readiness() const { return false; }
    virtual Readiness readiness(int fd);
    // The process is about to end or the power to fail: write down what is still to be said.
    virtual void flush() {}

protected:
    ~Model() = default;
};

namespace device {

// The model behind a path or a descriptor; null when there is none.
Model* find(const char* path);
Model* of(int fd);
// A descriptor that this process did not open itself, such as one inherited across exec, is
// recognised by its backing file.
void adopt_inherited();
void copied(int from, int to); // dup and its kin

// As the calls of these names: -1 with errno. They count operations and apply the fault plan.
int open(Model& model, int flags);
int close(int fd);
ssize_t read(Model& model, int fd, void* data, size_t size);
ssize_t write(Model& model, int fd, const void* data, size_t size);
ssize_t pread(Model& model, int fd, void* data, size_t size, int64_t offset);
ssize_t pwrite(Model& model, int fd, const void* data, size_t size, int64_t offset);
int64_t seek(Model& model, int fd, int64_t offset, int whence);
int ioctl(Model& model, int fd, uint32_t request, void* argument);
void* map(Model& model, int fd, void* address, size_t length, int protection, int flags, int64_t offset);
void flush_all();

// How often this process has asked the device (by its name) for the operation.
int count(const char* name, const char* operation);
void forget_counts();

} // namespace device
} // namespace vcam
