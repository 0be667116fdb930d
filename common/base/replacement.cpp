// The new contents of a file, put in its place by a rename or not at all.
#include "common/base/replacement.hpp"
#include "common/base/whole_io.hpp"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace zep {

namespace {

bool same_file(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Removes an old temporary file; never a device, a folder or the file that is about to be read.
bool clear_way(const char* temp_path, int source)
{
    struct stat old, from;
    if (lstat(temp_path, &old) < 0) return true;
    bool removable = S_ISREG(old.st_mode) || S_ISLNK(old.st_mode);
    bool in_use = source >= 0 && (fstat(source, &from) < 0 || same_file(old, from));
    if (!removable || in_use) {
        errno = EEXIST;
        return false;
    }
    return unlink(temp_path) == 0;
}

// Without this the rename may be lost with the power although the data are safe.
bool sync_folder_of(const char* path)
{
    char folder[PATH_MAX] = ".";
    if (const char* slash = strrchr(path, '/')) {
        size_t length = size_t(slash - path) + 1;
        if (length >= sizeof folder) return true;
        memcpy(folder, path, length);
        folder[length] = '\0';
    }
    Fd fd(open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A folder that may not be read, or a file system without the call, cannot do more; a device error can.
    return !fd || fsync(fd.get()) == 0 || errno != EIO;
}

} // namespace

bool Replacement::create(const char* temp_path, Existing existing, int source)
{
    if (existing == Existing::replace && !clear_way(temp_path, source)) return false;
    file_.reset(open(temp_path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file_) return false;
    struct stat own;
    if (fstat(file_.get(), &own) < 0) {
        int saved = errno;
        unlink(temp_path); // it would lock others out
        errno = saved;
        return false;
    }
    device_ = own.st_dev;
    inode_ = own.st_ino;
    temp_path_ = temp_path;
    return true;
}

void Replacement::put(const char* data, size_t length)
{
    while (length > 0 && error_ == 0) {
        size_t part = std::min(length, sizeof buffer_ - used_);
        memcpy(buffer_ + used_, data, part);
        used_ += part;
        data += part;
        length -= part;
        if (used_ == sizeof buffer_) flush();
    }
}

bool Replacement::flush()
{
    if (error_ == 0 && !write_fully(file_.get(), buffer_, used_)) error_ = errno;
    used_ = 0;
    return error_ == 0;
}

bool Replacement::finish(int source, mode_t mode)
{
    if (!flush()) {
        errno = error_;
        return false;
    }
    return take_over(source, mode) && fsync(file_.get()) == 0;
}

bool Replacement::take_over(int source, mode_t mode)
{
    if (source < 0) return fchmod(file_.get(), mode) == 0;
    struct stat from, own;
    if (fstat(source, &from) < 0 || fstat(file_.get(), &own) < 0) return false;
    bool owned = own.st_uid == from.st_uid && own.st_gid == from.st_gid;
    if (!owned && fchown(file_.get(), from.st_uid, from.st_gid) < 0) return false;
    // After the owner: a change of owner drops the set-id bits.
    return fchmod(file_.get(), from.st_mode & 07777) == 0;
}

Replacement::Owner Replacement::temp_owner() const
{
    struct stat there;
    if (lstat(temp_path_, &there) < 0) return Owner::unknown;
    return there.st_dev == device_ && there.st_ino == inode_ ? Owner::this_one : Owner::another;
}

bool Replacement::commit(const char* path, int source, mode_t mode)
{
    if (!finish(source, mode)) return false;
    if (close(file_.release()) < 0) return false;
    // Another writer that ignores the lock may have put its own file there; renaming that would put half of
    // its settings in place.
    if (temp_owner() != Owner::this_one) {
        errno = ESTALE;
        return false;
    }
    if (rename(temp_path_, path) < 0) return false;
    temp_path_ = nullptr;
    return sync_folder_of(path);
}

void Replacement::discard()
{
    int saved = errno;
    if (temp_path_ && temp_owner() != Owner::another) unlink(temp_path_);
    errno = saved;
}

} // namespace zep
