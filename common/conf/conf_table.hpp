// Rows of a typed reader's table. A row or a table that could not work does not compile.
#pragma once

#include "common/conf/conf_scan.hpp"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace zep {

// Not constexpr: the compiler refuses a table that comes here while it is built, and shows the text.
void conf_table_refused(const char* why);

struct ConfField {
    uint32_t offset, size;
    bool is_text;
};

// A field of what the file calls `Record`: an int32_t or an array of char.
#define CONF_FIELD(member) zep::conf_field<decltype(std::declval<Record&>().member)>(offsetof(Record, member))

template<typename Type> consteval ConfField conf_field(size_t offset)
{
    constexpr bool is_text = std::is_array_v<Type> && std::is_same_v<std::remove_extent_t<Type>, char>;
    static_assert(is_text || std::is_same_v<Type, int32_t>);
    return {.offset = uint32_t(offset), .size = sizeof(Type), .is_text = is_text};
}

consteval int64_t conf_number_of(const char* text)
{
    bool negative = *text == '-';
    if (negative) ++text;
    if (!*text) conf_table_refused("a number without digits");
    int64_t value = 0;
    for (; *text; ++text) {
        if (*text < '0' || *text > '9') conf_table_refused("a number that is not decimal");
        value = value * 10 + (*text - '0');
    }
    return negative ? -value : value;
}

// Rows. The last argument is the fallback, as it could stand in the file.

consteval ConfKey conf_text_row(const char* name, ConfStore store, ConfField field, size_t room,
                                const char* fallback)
{
    size_t length = 0;
    while (fallback[length]) ++length;
    if (!field.is_text || field.size < room || length >= field.size)
        conf_table_refused("the field has no room for the text");
    return {.name = name, .store = store, .offset = field.offset, .size = field.size, .fallback = fallback};
}

consteval ConfKey conf_text(const char* name, ConfField field, const char* fallback)
{
    return conf_text_row(name, conf_store_text, field, 2, fallback);
}

consteval ConfKey conf_ipv4(const char* name, ConfField field, const char* fallback)
{
    return conf_text_row(name, conf_store_ipv4, field, sizeof "255.255.255.255", fallback);
}

consteval ConfKey conf_ipv6(const char* name, ConfField field, const char* fallback)
{
    return conf_text_row(name, conf_store_ipv6, field, 46, fallback); // as INET6_ADDRSTRLEN
}

consteval ConfKey conf_mac(const char* name, ConfField field, const char* fallback)
{
    return conf_text_row(name, conf_store_mac, field, sizeof "00:00:00:00:00:00", fallback);
}

struct ConfRange {
    int32_t min, max;
};

consteval ConfKey conf_number(const char* name, ConfField field, ConfRange range, const char* fallback)
{
    int64_t value = conf_number_of(fallback);
    if (field.is_text) conf_table_refused("a number's field is an int32_t");
    if (value < range.min || value > range.max) conf_table_refused("the fallback is outside the range");
    return {.name = name,
            .store = conf_store_int32,
            .offset = field.offset,
            .size = field.size,
            .min = range.min,
            .max = range.max,
            .fallback = fallback};
}

// 1 is yes, 0 no.
consteval ConfKey conf_flag(const char* name, ConfField field, const char* fallback)
{
    return conf_number(name, field, {0, 1}, fallback);
}

// One of the words, which have one blank between them.
consteval ConfKey conf_choice(const char* name, ConfField field, const char* words, const char* fallback)
{
    if (field.is_text) conf_table_refused("a choice's field is an int32_t");
    if (conf_word_place(words, fallback) < 0) conf_table_refused("the fallback is none of the words");
    return {.name = name,
            .store = conf_store_choice,
            .offset = field.offset,
            .size = field.size,
            .fallback = fallback,
            .words = words};
}

// The row counts below the line "[<section>]" only.
consteval ConfKey conf_in(const char* section, ConfKey key)
{
    key.section = section;
    return key;
}

template<typename Record> consteval ConfReader conf_reader(const char* name, std::span<const ConfKey> keys)
{
    if (!conf_keys_reachable(keys)) conf_table_refused("a key stands behind one that begins it");
    return {.name = name, .keys = keys, .record_size = sizeof(Record)};
}

} // namespace zep
