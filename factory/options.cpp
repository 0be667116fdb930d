// Command lines of the factory tests.
#include "factory/options.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zep {

namespace {

const Option* find(std::span<const Option> options, const char* name)
{
    for (const Option& option : options)
        if (strcmp(option.name, name) == 0) return &option;
    return nullptr;
}

bool refuse(const char* applet, const char* what, const char* word, const char* usage)
{
    fprintf(stderr, "%s: %s: %s\n%s", applet, what, word, usage);
    return false;
}

} // namespace

bool parse_number(const char* text, int64_t min, int64_t max, int64_t& value)
{
    bool hexadecimal = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* digits = text + (hexadecimal ? 2 : (*text == '-'));
    if (*digits == '\0' ||
        digits[strspn(digits, hexadecimal ? "0123456789abcdefABCDEF" : "0123456789")] != '\0')
        return false;
    errno = 0;
    long long number = strtoll(text, nullptr, hexadecimal ? 16 : 10);
    if (errno != 0 || number < min || number > max) return false;
    value = number;
    return true;
}

bool parse_options(int argc, char** argv, std::span<const Option> options, const char** words, int max_words,
                   const char* usage)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (const Option* option = find(options, argv[i])) {
            if (option->flag) *option->flag = true;
            if (!option->value) continue;
            if (++i == argc) return refuse(argv[0], "a number is missing behind", option->name, usage);
            if (!parse_number(argv[i], option->min, option->max, *option->value))
                return refuse(argv[0], "not a number in range", argv[i], usage);
            continue;
        }
        if (argv[i][0] == '-' && argv[i][1] != '\0') return refuse(argv[0], "no such option", argv[i], usage);
        if (count == max_words) return refuse(argv[0], "one word too many", argv[i], usage);
        words[count++] = argv[i];
    }
    return true;
}

} // namespace zep
