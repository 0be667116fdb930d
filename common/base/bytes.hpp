// Integers of a stated byte order in bytes of a file, a frame or a message.
#pragma once

#include <cstdint>

namespace zep {

template<class T>
concept Byte = sizeof(T) == 1;

// clang-format off
constexpr uint16_t load_le16(const Byte auto* p) { return uint16_t(uint8_t(p[0]) | uint8_t(p[1]) << 8); }
constexpr uint16_t load_be16(const Byte auto* p) { return uint16_t(uint8_t(p[0]) << 8 | uint8_t(p[1])); }
constexpr uint32_t load_le32(const Byte auto* p) { return load_le16(p) | uint32_t(load_le16(p + 2)) << 16; }
constexpr uint32_t load_be32(const Byte auto* p) { return uint32_t(load_be16(p)) << 16 | load_be16(p + 2); }
// clang-format on

template<Byte T> constexpr void store_le16(T* p, uint16_t value)
{
    p[0] = T(value & 0xFF);
    p[1] = T(value >> 8);
}

template<Byte T> constexpr void store_be16(T* p, uint16_t value)
{
    p[0] = T(value >> 8);
    p[1] = T(value & 0xFF);
}

template<Byte T> constexpr void store_le32(T* p, uint32_t value)
{
    store_le16(p, uint16_t(value));
    store_le16(p + 2, uint16_t(value >> 16));
}

template<Byte T> constexpr void store_be32(T* p, uint32_t value)
{
    store_be16(p, uint16_t(value >> 16));
    store_be16(p + 2, uint16_t(value));
}

// Appends to a string or a vector of bytes; for host programs.
template<class Bytes> void append_le16(Bytes& to, uint16_t value)
{
    typename Bytes::value_type bytes[2];
    store_le16(bytes, value);
    to.insert(to.end(), bytes, bytes + 2);
}

template<class Bytes> void append_le32(Bytes& to, uint32_t value)
{
    append_le16(to, uint16_t(value));
    append_le16(to, uint16_t(value >> 16));
}

} // namespace zep
