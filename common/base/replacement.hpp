// The new contents of a file, put in its place by a rename or not at all.
#pragma once

#include "common/base/fd.hpp"

#include <cstddef>
#include <sys/types.h>

namespace zep {

// put() writes to a temporary file. Errors are kept: commit() reports a write that failed before. Without a
// successful commit() the destructor removes the temporary file.
class Replacement {
public:
    Replacement() = default;
    ~Replacement() { discard(); }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    enum class Existing { refuse, replace };

    // Makes the temporary file, for its owner only until commit(). `source` is the open file to be replaced,
    // or -1 for a new one. False with errno: EEXIST when one exists and is to be refused, when the path is
    // neither a file nor a link, or when it is the source itself. `temp_path` must outlive the object.
    bool create(const char* temp_path, Existing existing, int source);

    void put(const char* data, size_t length);

    // Gives the file the mode and owner of `source`, or `mode` without a source (-1), brings it to the
    // storage and renames it over `path`. False with errno. A directory entry that the storage refuses is a
    // failure too, though the new file is in place then.
    bool commit(const char* path, int source, mode_t mode = 0600);

private:
    bool flush();
    bool finish(int source, mode_t mode);
    bool take_over(int source, mode_t mode);
    enum class Owner { this_one, another, unknown };
    [[nodiscard]] Owner temp_owner() const;
    void discard();

    const char* temp_path_ = nullptr;
    Fd file_;
    dev_t device_ = 0; // with inode_: distinguishes our file from one that another writer put at its path
    ino_t inode_ = 0;
    int error_ = 0;
    size_t used_ = 0;
    char buffer_[4096];
};

} // namespace zep
