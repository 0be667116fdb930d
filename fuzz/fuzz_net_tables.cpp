// Tables of the network: the first byte chooses the reader, the rest is the file.
#include "common/net/qrn_status_files.hpp"
#include "fuzz/fuzz.hpp"

#include <arpa/inet.h>
#include <memory>

namespace {

// Exactly as large as documented, so that a byte too many is caught.
using Address = char[QRN_ADDRESS_SIZE];

bool is_address(int family, const char* text)
{
    in6_addr binary;
    return memchr(text, '\0', QRN_ADDRESS_SIZE) && inet_pton(family, text, &binary) == 1;
}

void gateway(int fd, int family, bool (*read)(int, const char*, char*), const char* interface)
{
    auto address = std::make_unique<char[]>(QRN_ADDRESS_SIZE);
    if (read(fd, interface, address.get())) must(is_address(family, address.get()));
}

void resolvers(int fd, int32_t max)
{
    std::unique_ptr<Address[]> list(new Address[size_t(max)]);
    int32_t count = zep::read_resolvers(fd, list.get(), max);
    must(count >= 0 && count <= max && count <= QRN_RESOLVERS);
    for (int32_t i = 0; i < count; ++i) must(is_address(AF_INET, list[i]) || is_address(AF_INET6, list[i]));
}

} // namespace

void try_bytes(const std::string& bytes)
{
    if (bytes.empty()) return;
    const int first = uint8_t(bytes[0]), choice = first % 6;
    const char* interface = choice & 1 ? "eth0" : nullptr;
    MemoryFile file(bytes.substr(1));
    QRN_IF_COUNTERS_S counters;
    if (choice < 2) gateway(file.fd(), AF_INET, zep::read_gateway, interface);
    if (choice == 2 || choice == 3) gateway(file.fd(), AF_INET6, zep::read_gateway6, interface);
    if (choice == 4) resolvers(file.fd(), 1 + first / 6 % 5);
    if (choice == 5) zep::read_counters(file.fd(), "eth0", counters);
}
