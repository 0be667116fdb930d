// Process names of a list file.
#include "service/kill_list.hpp"
#include "common/base/line_reader.hpp"

#include <cstring>

namespace zep {

namespace {

void add_name(KillList& list, char* line, size_t length)
{
    // A block of zero bytes, as a lost write leaves it, must not pass for the empty name that matches all.
    if (length >= CUTIL_KILL_LIST_NAME_SIZE || strlen(line) != length) return;
    line[strcspn(line, "\r\n")] = '\0';
    strcpy(list.names[list.count++], line);
}

} // namespace

void read_kill_list(int fd, KillList& list)
{
    list.count = 0;
    LineReader reader(fd);
    char line[256];
    bool tail = false; // the rest of a line longer than the buffer must not pass for a name
    ssize_t length;
    while (list.count < CUTIL_KILL_LIST_NAMES && (length = reader.next(line)) > 0) {
        bool whole = line[length - 1] == '\n' || length < ssize_t(sizeof line) - 1;
        if (!tail && whole) add_name(list, line, size_t(length));
        tail = !whole;
    }
}

} // namespace zep
