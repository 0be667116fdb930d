// Configuration text: the tokenizer and the getter.
#include "common/cutil_conf.h"
#include "fuzz/fuzz.hpp"

#include <memory>

namespace {

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

void try_bytes(const std::string& bytes)
{
    tokenize(bytes);
    MemoryFile file(bytes);
    std::unique_ptr<char[]> value(new char[CUTIL_CONF_VALUE_SIZE]);
    for (const char* key :
         {"", "level", "a key of more than sixty-three characters, which no file should hold, ever"})
        must(CUTIL_GetConfValue(file.path().c_str(), key, value.get()) == 0 &&
             strlen(value.get()) < CUTIL_CONF_VALUE_SIZE);
}
