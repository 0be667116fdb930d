// GPIO lines of the board, by model and by configuration.
#include "factory/wiring.hpp"

#include "board/cmodel.h"
#include "common/conf/conf_scan.hpp"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <unistd.h>

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

// A list as the file gives it. One that fills its room may have been cut, and may still look like a list, but
// with lines missing. The reader's lines have 255 characters, which is more.
constexpr size_t kListRoom = 200;

struct WiringText {
    char outputs[kListRoom];
    char inputs[kListRoom];
    char leds[kListRoom];
    char key[kListRoom];
    int32_t key_active;
};

#define FIELD(member) offsetof(WiringText, member), sizeof(WiringText::member)
constexpr ConfKey kKeys[] = {
    {"dio_out", conf_store_text, FIELD(outputs)}, {"dio_in", conf_store_text, FIELD(inputs)},
    {"led", conf_store_text, FIELD(leds)},        {"key_active", conf_store_int32, FIELD(key_active), 0, 1},
    {"key", conf_store_text, FIELD(key)},
};
#undef FIELD
static_assert(conf_keys_reachable(kKeys));

WiringText text_of_model()
{
    char model[CMODEL_CODE_SIZE];
    CMODEL_GetCode(model);
    WiringText text = {};
    for (const Board& board : kBoards) {
        if (board.platform != CMODEL_GetPlatform(model) || board.channels != CMODEL_GetChannelCount(model))
            continue;
        snprintf(text.outputs, sizeof text.outputs, "%s", board.outputs);
        snprintf(text.inputs, sizeof text.inputs, "%s", board.inputs);
        snprintf(text.leds, sizeof text.leds, "%s", board.leds);
        snprintf(text.key, sizeof text.key, "%s", board.key);
    }
    return text;
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
bool parse_name(const char*& text, Line& line)
{
    size_t length = strcspn(text, ":,.");
    if (text[length] != ':') return true;
    if (length == 0 || length >= sizeof line.name) return false;
    memcpy(line.name, text, length);
    line.name[length] = '\0';
    text += length + 1;
    return true;
}

bool parse_named(const char* name, const char* text, LineList& list)
{
    if (strlen(text) + 1 == kListRoom) {
        fprintf(stderr, "%s: %s= has a list of more than %zu characters\n", kWiringFile, name, kListRoom - 2);
        return false;
    }
    if (parse_lines(text, list)) return true;
    fprintf(stderr, "%s: %s=%s is not a list of at most %zu lines such as 5.0,5.1\n", kWiringFile, name, text,
            kMaxLines);
    return false;
}

} // namespace

bool parse_lines(const char* text, LineList& list)
{
    list.count = 0;
    while (*text) {
        Line line;
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
    WiringText text = text_of_model();
    // Without the file the model's lines hold; the scan would report its absence to the system log.
    if (access(kWiringFile, R_OK) == 0) conf_scan({"factory_io_info", kKeys}, kWiringFile, &text);
    wiring.key_active = text.key_active;
    return parse_named("dio_out", text.outputs, wiring.outputs) &&
           parse_named("dio_in", text.inputs, wiring.inputs) && parse_named("led", text.leds, wiring.leds) &&
           parse_named("key", text.key, wiring.key);
}

void Steps::say(const char* format, ...) const
{
    if (!verbose) return;
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}

int print_verdict(bool passed)
{
    puts(passed ? "successful" : "failed");
    return 0;
}

} // namespace zep
