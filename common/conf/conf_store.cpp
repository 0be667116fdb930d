// What the typed configuration readers make of a value.
#include "common/conf/conf_scan.hpp"
#include "common/base/parse_int.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

namespace zep {

namespace {

void store_number(void* record, const ConfKey& key, int32_t number)
{
    memcpy(static_cast<char*>(record) + key.offset, &number, sizeof number);
}

void store_address(void* record, const ConfKey& key, const char* value, int family)
{
    char binary[sizeof(in6_addr)];
    if (inet_pton(family, value, binary) == 1) conf_store_text(record, key, value);
}

bool is_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

} // namespace

void conf_store_text(void* record, const ConfKey& key, const char* value)
{
    size_t length = std::min(strlen(value), size_t(key.size) - 1);
    char* field = static_cast<char*>(record) + key.offset;
    memcpy(field, value, length);
    field[length] = '\0';
}

void conf_store_int32(void* record, const ConfKey& key, const char* value)
{
    const char* digits = value + (*value == '-' || *value == '+');
    if (*digits == '\0' || digits[strspn(digits, "0123456789")] != '\0') return;
    int32_t number = parse_int(value);
    if (number >= key.min && number <= key.max) store_number(record, key, number);
}

void conf_store_ipv4(void* record, const ConfKey& key, const char* value)
{
    store_address(record, key, value, AF_INET);
}

void conf_store_ipv6(void* record, const ConfKey& key, const char* value)
{
    store_address(record, key, value, AF_INET6);
}

void conf_store_mac(void* record, const ConfKey& key, const char* value)
{
    constexpr size_t kLength = sizeof "00:00:00:00:00:00" - 1;
    if (strlen(value) != kLength) return;
    for (size_t i = 0; i < kLength; ++i)
        if (i % 3 == 2 ? value[i] != ':' : !is_hex(value[i])) return;
    conf_store_text(record, key, value);
}

void conf_store_choice(void* record, const ConfKey& key, const char* value)
{
    int32_t place = conf_word_place(key.words, value);
    if (place >= 0) store_number(record, key, place);
}

} // namespace zep
