// The scan that every typed configuration reader stands on: a table of keys fills a record.
#include "common/conf/conf_scan.hpp"
#include "common/conf/conf_token.hpp"
#include "common/base/fd.hpp"
#include "common/base/line_reader.hpp"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>

namespace zep {

namespace {

constexpr size_t kLine = 256;

struct Scan {
    const ConfReader& reader;
    void* record;
    char section[32] = "";
    char value[kLine] = ""; // lives through the lines: a value that begins with `#` leaves the one before
};

bool matches(const Scan& scan, const ConfKey& key, const ConfToken& name)
{
    size_t length = strlen(key.name);
    if (name.length < length || memcmp(name.text, key.name, length) != 0) return false;
    return !key.section || strcmp(key.section, scan.section) == 0;
}

void store(const Scan& scan, const ConfToken& name)
{
    for (const ConfKey& key : scan.reader.keys) {
        if (!matches(scan, key, name)) continue;
        if (scan.value[0]) key.store(scan.record, key, scan.value);
        return;
    }
}

// "[INPUT]": the name between the brackets.
void enter_section(Scan& scan, const char* bracket)
{
    size_t length = std::min(strcspn(bracket + 1, "]\r\n"), sizeof scan.section - 1);
    memcpy(scan.section, bracket + 1, length);
    scan.section[length] = '\0';
}

void scan_line(Scan& scan, const char* line)
{
    for (const char* cursor = line; cursor;) {
        ConfToken name = conf_token(cursor);
        if (!name.next) return;
        if (conf_ends_line(name.next)) {
            if (cursor == line && !name.text && *name.next == '[') enter_section(scan, name.next);
            return;
        }
        cursor = conf_value(name.next, scan.value);
        store(scan, name);
    }
}

} // namespace

int32_t conf_scan(const ConfReader& reader, const char* path, void* record)
{
    if (!path || !record) return 0;
    Fd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        syslog(LOG_ALERT, "%s : %s can't open file : %s\n", reader.name, path, strerror(errno));
        return 0;
    }
    Scan scan = {reader, record};
    LineReader lines(file.get());
    char line[kLine];
    while (lines.next(line) > 0) scan_line(scan, line);
    return 1;
}

void conf_default(const ConfReader& reader, void* record)
{
    if (!record) return;
    memset(record, 0, reader.record_size);
    for (const ConfKey& key : reader.keys)
        if (key.fallback[0]) key.store(record, key, key.fallback);
}

} // namespace zep
