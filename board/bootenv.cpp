// Reader of the boot loader's environment.
#include "board/bootenv.h"

#include "common/base/fd.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr off_t kOffset = 0x40000;
constexpr size_t kSearched = 0x40000;
constexpr size_t kScratch = 256; // longest value kept, with its NUL

// Skips one conversion behind its "%" and returns where the plain text goes on.
const char* skip_conversion(const char* text)
{
    text += strspn(text, "-+ #0'");
    text += strspn(text, "0123456789*");
    if (*text == '.') {
        ++text;
        text += strspn(text, "0123456789*");
    }
    text += strspn(text, "hlLqjzt");
    return *text ? text + 1 : text;
}

// What formatting `text` without arguments can give, bounded by `size`.
void expand_template(const char* text, char* out, size_t size)
{
    size_t used = 0;
    while (*text) {
        if (text[0] == '%' && text[1] != '%') {
            text = skip_conversion(text + 1);
            continue;
        }
        if (used + 1 < size) out[used++] = *text;
        text += *text == '%' ? 2 : 1;
    }
    out[used] = '\0';
}

// The search; blocks of any size give the same result as single bytes.
class Search {
public:
    Search(const char* key, uint32_t limit)
        : key_(key), key_length_(strlen(key)), limit_(std::min<size_t>(limit, kScratch - 1))
    {
    }

    // True when the value is complete.
    bool take(const char* bytes, size_t size)
    {
        const char* end = bytes + size;
        for (const char* at = bytes; at < end; ++at) {
            if (!collecting_ && length_ == 0) {
                at = static_cast<const char*>(memchr(at, key_[0], size_t(end - at)));
                if (!at) return false;
            }
            if (collecting_ ? collect(*at) : match(*at)) return true;
        }
        return false;
    }
    [[nodiscard]] const char* value() const { return scratch_; }

private:
    bool match(char byte)
    {
        // The byte that breaks a match is dropped: environments were written against this reader.
        if (byte != key_[length_]) {
            length_ = 0;
            return false;
        }
        if (++length_ == key_length_) {
            collecting_ = true;
            length_ = 0;
        }
        return false;
    }

    bool collect(char byte)
    {
        scratch_[length_++] = byte;
        return byte == '\0' || length_ >= limit_;
    }

    const char* key_;
    size_t key_length_;
    size_t limit_;
    bool collecting_ = false;
    size_t length_ = 0;
    char scratch_[kScratch] = {};
};

} // namespace

int BOOTENV_GetValue(const char* key, uint32_t limit, char* out, size_t size)
{
    if (!key || !*key || !out || size == 0) return -1;
    zep::Fd fd(open("/dev/mtd0", O_RDONLY, 0666));
    if (!fd) {
        puts("err dev file");
        return -1;
    }
    lseek(fd.get(), kOffset, SEEK_SET);

    Search search(key, limit);
    char block[4096];
    for (size_t done = 0; done < kSearched;) {
        ssize_t got = read(fd.get(), block, sizeof block);
        // A block that cannot be read whole still has good bytes in front of the bad one.
        if (got < 0) got = read(fd.get(), block, 1);
        if (got <= 0) {
            printf("read err!");
            return -1;
        }
        const size_t count = std::min(size_t(got), kSearched - done);
        done += count;
        if (!search.take(block, count)) continue;
        expand_template(search.value(), out, size);
        return 0;
    }
    return -1;
}
