// GPIO lines of the board, by model and by configuration.
#include "factory/wiring.hpp"
#include "factory/verdict.hpp"

#include "board/cmodel.h"
#include "common/base/fd.hpp"
#include "common/base/line_reader.hpp"
#include "common/conf/conf_token.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

namespace zep {

namespace {

constexpr char kWiringFile[] = "/etc/factory_io.conf";
constexpr int32_t kMaxGroup = 10;
constexpr int32_t kMaxBit = 7;

// The lines of each board; boards of the first generation have another chip, whose lines the GPIO driver
// does not reach: they have none unless the file names some.
struct Board {
    uint32_t platform;
    uint32_t channels;
    const char* outputs;
    const char* inputs;
    const char* leds;
    const char* key;
};
constexpr Board kBoards[] = {
    {2, 1, "5.0", "4.0", "power:9.0,status:9.1", "8.1"},
    {2, 4, "5.0,5.1,6.4,8.2", "4.0,4.1,4.6,4.7", "power:9.0,status:9.1,network:9.2,record:9.3", "8.1"},
};

constexpr size_t kListSize = 198; // characters of a list
constexpr size_t kFileLine = 256; // of the file, with its line feed and a NUL

struct ListSetting {
    const char* name;
    LineList Wiring::*list;
};
constexpr ListSetting kLists[] = {
    {"dio_out", &Wiring::outputs},
    {"dio_in", &Wiring::inputs},
    {"led", &Wiring::leds},
    {"key", &Wiring::key},
};

void load_model(Wiring& wiring)
{
    char model[CMODEL_CODE_SIZE];
    CMODEL_GetCode(model);
    for (const Board& board : kBoards) {
        if (board.platform != CMODEL_GetPlatform(model) || board.channels != CMODEL_GetChannelCount(model))
            continue;
        parse_lines(board.outputs, wiring.outputs);
        parse_lines(board.inputs, wiring.inputs);
        parse_lines(board.leds, wiring.leds);
        parse_lines(board.key, wiring.key);
    }
}

// A decimal number of at most two digits; `text` moves behind it.
bool parse_number(const char*& text, int32_t& number)
{
    const char* start = text;
    number = 0;
    for (; *text >= '0' && *text <= '9' && text - start < 2; ++text) number = number * 10 + (*text - '0');
    return text != start;
}

// "power:" in front of a line, if there is one; `text` moves behind it.
bool parse_name(const char*& text, GpioLine& line)
{
    size_t length = strcspn(text, ":,.");
    if (text[length] != ':') return true;
    if (length == 0 || length >= sizeof line.name) return false;
    memcpy(line.name, text, length);
    line.name[length] = '\0';
    text += length + 1;
    return true;
}

bool set_list(int number, const char* name, const char* value, LineList& list)
{
    if (strlen(value) > kListSize) {
        warn("%s:%d: %s= has a list of more than %zu characters", kWiringFile, number, name, kListSize);
        return false;
    }
    if (parse_lines(value, list)) return true;
    warn("%s:%d: %s=%s is not a list of at most %zu lines such as 5.0,5.1", kWiringFile, number, name, value,
         kMaxLines);
    return false;
}

bool set_key_level(int number, const char* value, int32_t& level)
{
    if (strcmp(value, "0") != 0 && strcmp(value, "1") != 0) {
        warn("%s:%d: key_active=%s is neither 0 nor 1", kWiringFile, number, value);
        return false;
    }
    level = *value - '0';
    return true;
}

// An empty value leaves what the model has.
bool set(int number, const char* name, const char* value, Wiring& wiring)
{
    for (const ListSetting& setting : kLists)
        if (strcmp(setting.name, name) == 0)
            return !*value || set_list(number, name, value, wiring.*setting.list);
    if (strcmp(name, "key_active") == 0) return !*value || set_key_level(number, value, wiring.key_active);
    warn("%s:%d: %s is not a setting", kWiringFile, number, name);
    return false;
}

// One line of the file; a further "=" behind a value begins a setting of its own.
bool load_line(int number, const char* line, Wiring& wiring)
{
    for (const char* cursor = line; cursor;) {
        const ConfToken token = conf_token(cursor);
        if (!token.next || conf_ends_line(token.next)) return true;
        char name[kFileLine] = "";
        char value[kFileLine] = "";
        conf_copy(token, name);
        cursor = conf_value(token.next, value);
        if (!set(number, name, value, wiring)) return false;
    }
    return true;
}

} // namespace

bool parse_lines(const char* text, LineList& list)
{
    list.count = 0;
    while (*text) {
        GpioLine line;
        if (list.count == kMaxLines || !parse_name(text, line) || !parse_number(text, line.group) ||
            *text++ != '.' || !parse_number(text, line.bit))
            return false;
        if (line.group < 1 || line.group > kMaxGroup || line.bit > kMaxBit) return false;
        list.lines[list.count++] = line;
        if (*text == ',' && text[1] != '\0')
            ++text;
        else if (*text)
            return false;
    }
    return true;
}

bool load_wiring(Wiring& wiring)
{
    load_model(wiring);
    const Fd file(open(kWiringFile, O_RDONLY | O_CLOEXEC));
    if (!file && errno == ENOENT) return true; // the model's lines hold
    if (!file) {
        warn("%s: %s", kWiringFile, strerror(errno));
        return false;
    }
    LineReader reader(file.get());
    char line[kFileLine];
    int number = 0;
    ssize_t length = 0;
    while ((length = reader.next(line)) > 0) {
        ++number;
        // A line that was cut may still look whole, with lines of the board missing.
        if (size_t(length) + 1 == sizeof line && line[length - 1] != '\n') {
            warn("%s:%d: the line has more than %zu characters", kWiringFile, number, kFileLine - 2);
            return false;
        }
        if (!load_line(number, line, wiring)) return false;
    }
    if (length < 0) warn("%s: %s", kWiringFile, strerror(errno));
    return length == 0;
}

} // namespace zep
