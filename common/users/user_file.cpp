// The lines of the service users' file.
#include "common/users/user_file.hpp"

#include "common/base/line_reader.hpp"
#include "common/base/parse_int.hpp"
#include "common/users/user_block.hpp"

#include <cstdio>
#include <cstring>

namespace zep {

namespace {

constexpr size_t kFields = 6;
constexpr size_t kMaxRight = 3; // characters of a number

// Cuts the line into its first six fields, each ended by "/" or the last by the line's end; false when one is
// missing or empty.
bool split(char* line, char* (&fields)[kFields])
{
    line[strcspn(line, "\r\n")] = '\0';
    for (char*& field : fields) {
        field = line;
        size_t length = strcspn(line, "/");
        if (length == 0) return false;
        bool last = line[length] == '\0';
        line[length] = '\0';
        line += last ? length : length + 1;
    }
    return true;
}

bool parse_right(const char* text, uint8_t& right)
{
    if (strlen(text) > kMaxRight) return false;
    right = uint8_t(parse_int(text));
    return true;
}

bool parse_entry(char* line, USERTABLE_ENTRY_S& entry)
{
    char* fields[kFields];
    UserBlock block;
    if (!split(line, fields) || !user_block_from_hex(fields[1], block)) return false;
    if (strlen(fields[0]) >= sizeof entry.name) return false;
    uint8_t* rights[] = {&entry.right1, &entry.right2, &entry.right3, &entry.right4};
    for (size_t i = 0; i < 4; ++i)
        if (!parse_right(fields[2 + i], *rights[i])) return false;
    strcpy(entry.name, fields[0]);
    unscramble_password(block, entry.password);
    return true;
}

} // namespace

bool read_users(int fd, USERTABLE_S& table)
{
    LineReader lines(fd);
    char line[kUserLine];
    ssize_t length = 0;
    while (table.count < USERTABLE_USERS && (length = lines.next(line)) > 0) {
        USERTABLE_ENTRY_S entry = {};
        if (parse_entry(line, entry)) table.entries[table.count++] = entry;
    }
    return length >= 0;
}

bool fits_user_line(const char* text, size_t size)
{
    return memchr(text, '\0', size) && text[strcspn(text, "/\r\n")] == '\0';
}

size_t user_line(const USERTABLE_ENTRY_S& entry, char (&line)[kUserLine])
{
    char hex[2 * kUserBlockSize + 1];
    user_block_to_hex(scramble_password(entry.password), hex);
    return size_t(snprintf(line, sizeof line, "%s/%s/%d/%d/%d/%d/\n", entry.name, hex, entry.right1,
                           entry.right2, entry.right3, entry.right4));
}

} // namespace zep
