// Reading of key=value configuration files.
#include "common/cutil_conf.h"
#include "common/conf/conf_token.hpp"
#include "common/base/fd.hpp"
#include "common/base/line_reader.hpp"
#include "common/base/parse_int.hpp"

#include <cstring>
#include <fcntl.h>

namespace {

using namespace zep;

bool begins_with(const ConfToken& token, const char* name, size_t length)
{
    return token.length >= length && memcmp(token.text, name, length) == 0;
}

} // namespace

const char* CUTIL_GetConfToken(char* token, const char* cursor)
{
    ConfToken found = conf_token(cursor);
    conf_copy(found, {token, found.length + 1});
    return found.next;
}

int CUTIL_GetConfValue(const char* path, const char* key, char* value)
{
    if (!path || !key || !value) return -1;
    Fd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file) return -1;

    LineReader reader(file.get());
    size_t wanted = strlen(key);
    char line[CUTIL_CONF_VALUE_SIZE];
    char found[CUTIL_CONF_VALUE_SIZE] = "";
    while (reader.next(line) > 0) {
        ConfToken name = conf_token(line);
        if (!name.next || conf_ends_line(name.next)) continue;
        conf_value(name.next, found); // before the comparison: the last value read is the default
        if (begins_with(name, key, wanted)) break;
    }
    strcpy(value, found);
    return 0;
}

int32_t CUTIL_AtoiDigits(const char* text)
{
    if (!text || text[strspn(text, "0123456789")] != '\0') return -1;
    return parse_int(text);
}
