// Configuration text: the tokenizer, the getter and the table-driven scan.
#include "common/conf/conf_scan.hpp"
#include "common/cutil_conf.h"
#include "fuzz/fuzz_file.hpp"

#include <cstddef>
#include <cstring>
#include <memory>

namespace {

struct Record {
    char alias[8];
    int32_t level;
    char mode[4];
};

constexpr zep::ConfKey kKeys[] = {
    {.name = "alias", .store = zep::conf_store_text, .offset = offsetof(Record, alias), .size = 8},
    {.name = "level",
     .store = zep::conf_store_int32,
     .offset = offsetof(Record, level),
     .size = 4,
     .min = -9,
     .max = 9},
    {.name = "m",
     .store = zep::conf_store_text,
     .offset = offsetof(Record, mode),
     .size = 4,
     .section = "INPUT"},
};

// Exactly as large as documented, so that a byte too many is caught.
void tokenize(const std::string& text)
{
    size_t room = strlen(text.c_str()) + 1;
    std::unique_ptr<char[]> token(new char[room]);
    const char* end = text.c_str() + room - 1;
    for (const char* cursor = text.c_str(); (cursor = CUTIL_GetConfToken(token.get(), cursor));) {
        must(cursor <= end);
        if (*cursor == '#' || *cursor == '[') return;
        must(strpbrk(token.get(), "=\n\r") == nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    tokenize({reinterpret_cast<const char*>(data), size});
    FuzzFile file(data, size);
    std::unique_ptr<char[]> value(new char[CUTIL_CONF_VALUE_SIZE]);
    for (const char* key :
         {"", "level", "a key of more than sixty-three characters, which no file should hold, ever"})
        must(CUTIL_GetConfValue(file.path().c_str(), key, value.get()) == 0 &&
             strlen(value.get()) < CUTIL_CONF_VALUE_SIZE);

    auto record = std::make_unique<Record>(Record{"", 1, ""});
    must(zep::conf_scan({"fuzz_info", kKeys}, file.path().c_str(), record.get()) == 1);
    must(record->level >= -9 && record->level <= 9);
    must(memchr(record->alias, 0, sizeof record->alias) && memchr(record->mode, 0, sizeof record->mode));
    return 0;
}
