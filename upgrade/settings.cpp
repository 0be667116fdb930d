// Saves the settings files and service ports before an upgrade and puts them back after it.
#include "upgrade/settings.hpp"

#include "common/cutil_conf.h"
#include "common/base/fd.hpp"
#include "common/base/parse_int.hpp"
#include "common/base/replacement.hpp"
#include "common/base/shell.hpp"
#include "common/base/whole_io.hpp"
#include "upgrade/crc32.hpp"
#include "upgrade/log.hpp"
#include "upgrade/upgrade_process.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace zep {
namespace {

void copy_by_shell(const char* program, const char* from, const char* to)
{
    char line[128];
    snprintf(line, sizeof line, "%s -dpR %s %s", program, from, to);
    run_shell(line);
}

// A file's bytes. The descriptor keeps its mode and owner at hand after the file was removed.
struct Content {
    Fd fd;
    std::unique_ptr<char, decltype(&free)> data{nullptr, free};
    size_t size = 0;
};

// False with errno for a file that cannot be read whole or is empty.
bool load_once(const char* path, Content& content)
{
    struct stat info;
    content.size = 0;
    content.fd.reset(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!content.fd || fstat(content.fd.get(), &info) < 0) return false;
    size_t size = S_ISREG(info.st_mode) ? size_t(info.st_size) : 0;
    errno = ENODATA;
    if (size == 0) return false;
    content.data.reset(static_cast<char*>(malloc(size)));
    if (!content.data || read_fully(content.fd.get(), content.data.get(), size) < size) return false;
    content.size = size;
    return true;
}

// A single failure costs no setting.
bool load(const char* path, Content& content) { return load_once(path, content) || load_once(path, content); }

FileMark mark_of(const Content& content)
{
    return {uint32_t(content.size), crc32_update(0, content.data.get(), content.size)};
}

// The one judgement of a kept file: it can be read to its end and holds what the mark says.
bool whole(const char* path, const FileMark& mark)
{
    Content content;
    return load(path, content) && mark_of(content) == mark;
}

// Writes a file by direct calls; the old one stays until the new one is on the storage.
bool put(const char* path, const Content& content)
{
    char temp[64];
    snprintf(temp, sizeof temp, "%s.new", path);
    Replacement out;
    if (!content.size || !out.create(temp, Replacement::Existing::replace, -1)) return false;
    out.put(content.data.get(), content.size);
    return out.commit(path, content.fd.get());
}

void remove(const char* path)
{
    if (unlink(path) < 0 && errno != ENOENT) unlink(path);
}

// Beside the file on /etc: the user's file while the shell puts it back in place, which no power cut may catch
// halfway.
struct Twin {
    explicit Twin(const KeptFilePlace& file) { snprintf(path, sizeof path, "%s.kept", file.path); }
    char path[64];
};

// A power cut has left the user's file beside what had been put back of it.
void recover_file(const KeptFilePlace& file)
{
    Twin twin(file);
    Content kept, found;
    if (!load(twin.path, kept)) return;
    load(file.path, found);
    bool cut =
        found.size < kept.size && (!found.size || !memcmp(found.data.get(), kept.data.get(), found.size));
    if (cut && rename(twin.path, file.path) == 0) {
        log_and_print("upgrade: %s, cut short by a power cut, was completed from %s", file.path, twin.path);
        return;
    }
    if (kept.size != found.size || memcmp(kept.data.get(), found.data.get(), kept.size))
        log_and_print("upgrade: %s, left by a power cut, differs from %s and is removed", twin.path,
                      file.path);
    remove(twin.path);
}

// Loads the package's file and makes the copy safe to put back. A damaged copy would overwrite the package's
// file: the package's own takes its place, or nothing.
void prepare_file(const KeptFilePlace& file, const KeptFile& kept, Content& package)
{
    load(file.path, package);
    Content copy;
    if (load(file.copy, copy) && mark_of(copy) == kept.user)
        put(Twin(file).path, copy);
    else if (!put(file.copy, package))
        unlink(file.copy);
}

void mend_file(const KeptFilePlace& file, const KeptFile& kept, const Content& package)
{
    Twin twin(file);
    bool users =
        whole(file.path, kept.user) || (whole(twin.path, kept.user) && rename(twin.path, file.path) == 0);
    remove(twin.path);
    if (users) return;
    const char* reason = kept.error ? strerror(kept.error) : "its copy in /tmp was lost";
    bool put_back = whole(file.path, mark_of(package)) || put(file.path, package);
    int error = errno;
    if (put_back || (package.size && whole(file.path, mark_of(package))))
        log_and_print("upgrade: %s was not kept (%s), it is the package's", file.path, reason);
    else if (package.size)
        log_and_print("upgrade: %s was not kept (%s), nor could the package's be put back (%s)", file.path,
                      reason, strerror(error));
    else if (kept.error != ENOENT)
        log_and_print("upgrade: %s was not kept (%s), the package has none", file.path, reason);
}

// Without the settings partition nothing can be mended: only the shell lines run, whatever stands below /etc.
void restore_files(const KeptSettings& kept, bool mounted)
{
    Content package[kKeptFiles];
    for (int i = 0; mounted && i < kKeptFiles; ++i) prepare_file(kKeptFileTable[i], kept.file[i], package[i]);
    run_shell("/bin/rm -f /etc/network/network.conf");
    for (const KeptFilePlace& file : kKeptFileTable) copy_by_shell("/bin/cp", file.copy, file.path);
    for (int i = 0; mounted && i < kKeptFiles; ++i) mend_file(kKeptFileTable[i], kept.file[i], package[i]);
}

int number_in(const char* file, const char* key, int otherwise)
{
    char text[CUTIL_CONF_VALUE_SIZE];
    return CUTIL_GetConfValue(file, key, text) == 0 ? parse_int(text) : otherwise;
}

// A reading that fails halfway gives another number: two that agree did not.
KeptNumber read_number(const char* file, const char* key, int otherwise)
{
    Content content;
    if (!load(file, content)) return {otherwise, errno};
    int number = number_in(file, key, otherwise);
    if (number != number_in(file, key, otherwise)) number = number_in(file, key, otherwise);
    return {number, 0};
}

void write_number(const char* file, const char* key, const KeptNumber& number, bool mounted)
{
    char text[16];
    snprintf(text, sizeof text, "%d", number.value);
    // A writer of the old system may have left its lock in the new image, and the value would be refused.
    unlink(CUTIL_CONF_TEMP_PATH);
    errno = 0;
    bool written = CUTIL_SetConfValue(file, key, text) == 0;
    int error = errno;
    if (!mounted) return;                                              // one message has reported all
    if (!written && number.error == ENOENT && error == ENOENT) return; // no system has the file
    if (!written && number_in(file, key, ~number.value) != number.value)
        log_and_print("upgrade: %s: %s=%d was not kept (%s)", file, key, number.value,
                      error ? strerror(error) : "refused");
    else if (number.error)
        log_and_print("upgrade: %s: %s was not kept (%s), it is the default %d", file, key,
                      strerror(number.error), number.value);
}

struct Place {
    const char* file;
    const char* key;
};

Place place(const KeptNumberPlace& number, const KeptSettings& kept)
{
    if (number.file) return {number.file, number.key};
    return {kept.web_file, kept.web_key};
}

void report_all_lost(const KeptSettings& kept)
{
    constexpr char kReason[] = "/etc could not be mounted";
    for (int i = 0; i < kKeptFiles; ++i) {
        if (kept.file[i].error == ENOENT) continue; // there was none to keep
        log_and_print("upgrade: %s was not kept (%s)", kKeptFileTable[i].path, kReason);
    }
    for (const KeptNumberPlace& number : kKeptNumberTable) {
        Place at = place(number, kept);
        log_and_print("upgrade: %s: %s was not kept (%s)", at.file, at.key, kReason);
    }
}

} // namespace

void save_settings(KeptSettings& kept)
{
    for (const KeptFilePlace& file : kKeptFileTable) recover_file(file);
    for (const KeptFilePlace& file : kKeptFileTable) copy_by_shell(file.saved_by, file.path, file.copy);
    for (int i = 0; i < kKeptFiles; ++i) {
        Content content;
        bool loaded = load(kKeptFileTable[i].path, content);
        kept.file[i].error = loaded ? 0 : errno;
        kept.file[i].user = mark_of(content);
    }
    // Asked twice: one failure must not choose the other server.
    bool webs = access("/bin/webs", R_OK) == 0 || access("/bin/webs", R_OK) == 0;
    kept.web_file = webs ? "/etc/web.conf" : "/etc/lighttpd/lighttpd.conf";
    kept.web_key = webs ? "port" : "server.port";
    for (int i = 0; i < kKeptNumbers; ++i) {
        Place from = place(kKeptNumberTable[i], kept);
        kept.number[i] = read_number(from.file, from.key, kKeptNumberTable[i].otherwise);
    }
}

void restore_settings(const KeptSettings& kept)
{
    bool mounted = settings_mounted() || settings_mounted(); // one failure does not make it lost
    restore_files(kept, mounted);
    for (int i = 0; i < kKeptNumbers; ++i) {
        Place to = place(kKeptNumberTable[i], kept);
        write_number(to.file, to.key, kept.number[i], mounted);
    }
    unlink(CUTIL_CONF_TEMP_PATH);
    if (!mounted) report_all_lost(kept);
}

} // namespace zep
