// Whole files and folders.
#pragma once

#include "common/base/fd.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vcam {

using zep::Fd;

// Whole files by their own name: a link in its place is not followed, a pipe or a device is refused.
std::optional<std::string> try_read_file(const std::string& path);
std::string read_file(const std::string& path);                              // throws
std::string read_all(int fd, const std::string& name);                       // throws
void write_all(int fd, const std::string& content, const std::string& name); // throws
void write_file(const std::string& path, const std::string& content, mode_t mode = 0644);
// By a new file that takes the name: readers see the old content or the new one, and no link is followed. Throws.
void replace_file(const std::string& path, const std::string& content);
// One write on a descriptor in append mode: lines of several writers do not mix.
void append_file(const std::string& path, const std::string& line);

bool exists(const std::string& path); // of the link itself where it is one
void make_folders(const std::string& path);
// Copy with the source's time, so that an unchanged file is not copied again. True when it copied.
bool copy_if_changed(const std::string& from, const std::string& to);

// An unpacked tree of files in a temporary folder, removed at the end of the owner's life.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

struct Entry {
    char kind = 'f'; // f file, d folder, l link, o other
    mode_t mode = 0;
    uint64_t size = 0;
    int64_t time_ns = 0;
};
// Every entry below the folder, by path relative to it; `skip` names top folders to leave out.
std::map<std::string, Entry> list_tree(const std::string& folder, const std::vector<std::string>& skip = {});

uint32_t crc32(const void* data, size_t size, uint32_t seed = 0);
// A map of a whole file for reading.
class Mapped {
public:
    explicit Mapped(const std::string& path); // throws; an empty file is an empty map
    ~Mapped();
    Mapped(const Mapped&) = delete;
    Mapped& operator=(const Mapped&) = delete;
    [[nodiscard]] const unsigned char* data() const { return data_; }
    [[nodiscard]] size_t size() const { return size_; }

private:
    const unsigned char* data_ = nullptr;
    size_t size_ = 0;
};

} // namespace vcam
