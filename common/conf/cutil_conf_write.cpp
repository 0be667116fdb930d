// Writing of key=value configuration files: each writer rewrites the whole file.
#include "common/cutil_conf.h"
#include "common/base/fd.hpp"
#include "common/base/line_reader.hpp"
#include "common/base/replacement.hpp"
#include "common/base/report.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <span>
#include <syslog.h>

namespace {

using namespace zep;

constexpr size_t kConfLine = 256;
constexpr size_t kFileLine = 262144;

struct Setting {
    const char* key;
    char separator;
    const char* value;
    bool (*matches)(char* line, const char* key); // may cut the line
};

// The line begins with the key, so a longer key of the file matches too.
bool matches_prefix(char* line, const char* key) { return strncmp(line, key, strlen(key)) == 0; }

// The text before the first `=` or space is the key. A `#` before that leaves the line uncut, line end
// included, so that only a last line without line end can still match.
bool matches_whole(char* line, const char* key)
{
    char* stop = strpbrk(line, "= #");
    if (stop && *stop != '#') *stop = '\0';
    return strcmp(line, key) == 0;
}

bool well_formed(const char* function, const Setting& setting, const char* path)
{
    if (!setting.key || !setting.value || !path) {
        report_reason(function, "null argument");
        return false;
    }
    if (strchr(setting.key, '\n') || strchr(setting.value, '\n') || setting.separator == '\n') {
        report_reason(function, "line feed in key, value or separator");
        return false;
    }
    return true;
}

void put_setting(Replacement& out, const Setting& setting)
{
    out.put(setting.key, strlen(setting.key));
    out.put(&setting.separator, 1);
    out.put(setting.value, strlen(setting.value));
    out.put("\n", 1);
}

bool matches(const Setting& setting, const char* line, ssize_t length, std::span<char> copy)
{
    memcpy(copy.data(), line, size_t(length) + 1);
    return setting.matches(copy.data(), setting.key);
}

// Copies the source with the setting in it; false on a read error. `buffer` holds a line and its copy.
bool copy_with(const Setting& setting, int source, std::span<char> buffer, Replacement& out)
{
    std::span<char> line = buffer.first(buffer.size() / 2);
    std::span<char> copy = buffer.last(buffer.size() / 2);
    LineReader reader(source);
    bool found = false;
    bool line_open = false; // the last line of the source may lack its line end
    ssize_t length;
    while ((length = reader.next(line)) > 0) {
        bool match = matches(setting, line.data(), length, copy);
        if (match)
            put_setting(out, setting);
        else
            out.put(line.data(), size_t(length));
        line_open = !match && line[size_t(length) - 1] != '\n';
        found = found || match;
    }
    if (length < 0) return false;
    if (!found && line_open) out.put("\n", 1);
    if (!found) put_setting(out, setting);
    return true;
}

int cannot_open(const char* function, const char* path, int result)
{
    int saved = errno;
    printf("[%s] we can't open the file : %s\n", function, path);
    errno = saved;
    return result;
}

// Log filters look for the first line; the second says what to do.
int lock_taken()
{
    constexpr char kHelp[] =
        "[CUTIL_SetConfValue] " CUTIL_CONF_TEMP_PATH " exists: a writer is at work, or was "
        "killed and left it. If no process has it open (fuser), remove it.";
    int saved = errno;
    puts("[CUTIL_SetConfValue] temp.conf is already used ...");
    fprintf(stderr, "%s\n", kHelp);
    syslog(LOG_ALERT, "%s", kHelp);
    errno = saved;
    return -1;
}

bool lock_exists()
{
    Fd lock(open(CUTIL_CONF_TEMP_PATH, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return bool(lock);
}

} // namespace

int CUTIL_SetFileValue(const char* path, const char* temp_path, const char* key, const char* value)
{
    const Setting setting = {key, '=', value, matches_prefix};
    if (!well_formed(__func__, setting, temp_path ? path : nullptr)) return -1;
    Fd source(open(path, O_RDONLY | O_CLOEXEC));
    if (!source) return cannot_open(__func__, path, -1);
    Replacement out;
    if (!out.create(temp_path, Replacement::Existing::replace, source.get()))
        return cannot_open(__func__, temp_path, -1);

    // On the heap: threads of the device have small stacks.
    std::unique_ptr<char, decltype(&free)> buffer(static_cast<char*>(malloc(2 * kFileLine)), free);
    if (!buffer) return -1;
    if (!copy_with(setting, source.get(), {buffer.get(), 2 * kFileLine}, out)) return -1;
    return out.commit(path, source.get()) ? 0 : -1;
}

int CUTIL_SetConfValue(const char* path, const char* key, const char* value)
{
    const Setting setting = {key, '=', value, matches_whole};
    if (!well_formed(__func__, setting, path)) return -1;
    if (lock_exists()) return lock_taken();
    Fd source(open(path, O_RDONLY | O_CLOEXEC));
    if (!source) return cannot_open(__func__, path, -1);
    Replacement out;
    if (!out.create(CUTIL_CONF_TEMP_PATH, Replacement::Existing::refuse, source.get())) {
        // Made by another writer since the test above.
        if (errno == EEXIST) return lock_taken();
        return cannot_open(__func__, CUTIL_CONF_TEMP_PATH, -2);
    }
    char buffer[2 * kConfLine];
    if (!copy_with(setting, source.get(), buffer, out)) return -3;
    return out.commit(path, source.get()) ? 0 : -3;
}

int CUTIL_SetConfValueSep(int separator, const char* path, const char* key, const char* value)
{
    // The messages carry the other writer's name: log filters look for it.
    constexpr const char* kName = "CUTIL_SetConfValue";
    const Setting setting = {key, char(separator), value, matches_prefix};
    if (!well_formed(__func__, setting, path)) return -1;
    Fd source(open(path, O_RDONLY | O_CLOEXEC));
    if (!source) return cannot_open(kName, path, -1);
    Replacement out;
    if (!out.create(CUTIL_CONF_TEMP_PATH, Replacement::Existing::replace, source.get()))
        return cannot_open(kName, CUTIL_CONF_TEMP_PATH, -1);
    char buffer[2 * kConfLine];
    if (!copy_with(setting, source.get(), buffer, out)) return -1;
    return out.commit(path, source.get()) ? 0 : -1;
}
