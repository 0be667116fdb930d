// Files as fwpkg reads and writes them: whole, streamed, and never half in place.
#pragma once

#include "common/base/fd.hpp"

#include <cstdint>
#include <string>

namespace fwpkg {

struct Input {
    std::string path;
    zep::Fd fd;
    int64_t size = 0;

    // Opens a regular file; tells why on standard error when it cannot.
    bool open(const char* file);
};

// "fwpkg: <path>: <text>" on standard error; without text, that of errno.
void complain(const std::string& path, const char* text = nullptr);

// Copies size bytes from the position of one descriptor to that of the other.
bool copy_bytes(int from, int to, int64_t size);

// A file that appears under its name only when it is complete and on the storage.
class Output {
public:
    explicit Output(std::string path) : path_(std::move(path)) {}
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool create();
    bool commit();
    [[nodiscard]] int fd() const { return fd_.get(); }

private:
    std::string path_;
    std::string temporary_;
    zep::Fd fd_;
};

} // namespace fwpkg
