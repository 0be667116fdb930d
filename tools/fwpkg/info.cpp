// fwpkg info: what a package holds, in words or as JSON.
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/file.hpp"
#include "tools/fwpkg/json.hpp"
#include "tools/fwpkg/read_header.hpp"
#include "upgrade/crc32.hpp"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <getopt.h>
#include <optional>
#include <unistd.h>
#include <vector>

namespace fwpkg {
namespace {

using namespace zep;

constexpr const char* kImages[] = {"flash1", "flash2", "flash3"};
constexpr const char* kContents[] = {"kernel", "root file system", "settings (/etc)"};

struct KernelInfo {
    ImageHeader header;
    std::string name;
    uint32_t time, load, entry;
    bool header_crc_good;
};

struct PackageInfo {
    Input file;
    PackageHeader header;
    uint32_t crc[3] = {}; // of the images as far as the file holds them
    std::optional<KernelInfo> kernel;
};

uint32_t stretch_crc(int fd, int64_t offset, int64_t size)
{
    std::vector<char> buffer(256 * 1024);
    uint32_t crc = 0;
    while (size > 0) {
        ssize_t n = pread(fd, buffer.data(), size_t(std::min<int64_t>(size, int64_t(buffer.size()))), offset);
        if (n <= 0) break;
        crc = crc32_update(crc, buffer.data(), size_t(n));
        offset += n;
        size -= n;
    }
    return crc;
}

std::optional<KernelInfo> read_kernel(const PackageInfo& package)
{
    uint8_t bytes[kImageHeaderBytes];
    ssize_t n = pread(package.file.fd.get(), bytes, sizeof bytes, package.header.offset(0));
    if (n != ssize_t(sizeof bytes)) return {};
    KernelInfo kernel{decode_image_header(bytes), {},   load_be32(bytes + 8), load_be32(bytes + 16),
                      load_be32(bytes + 20),      false};
    if (kernel.header.magic != kImageMagic) return {};
    kernel.name.assign(bytes + 32, std::find(bytes + 32, bytes + 64, '\0'));
    kernel.header_crc_good = image_header_crc(bytes) == kernel.header.header_crc;
    return kernel;
}

std::string utc(uint32_t seconds)
{
    time_t t = time_t(seconds);
    tm parts{};
    gmtime_r(&t, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string code_text(uint8_t code, const char* (*name)(uint8_t))
{
    return std::to_string(code) + " (" + name(code) + ")";
}

void print_kernel(const KernelInfo& kernel)
{
    const ImageHeader& h = kernel.header;
    printf("kernel image\n");
    printf("  name          %s\n", printable(kernel.name).c_str());
    printf("  created       %s\n", utc(kernel.time).c_str());
    printf("  data          %u bytes, CRC-32 %s\n", h.data_size, hex(h.data_crc, 8).c_str());
    printf("  load, entry   %s, %s\n", hex(kernel.load, 8).c_str(), hex(kernel.entry, 8).c_str());
    printf("  architecture  %s\n", code_text(h.architecture, architecture_name).c_str());
    printf("  type          %s\n", code_text(h.type, type_name).c_str());
    printf("  compression   %s\n", code_text(h.compression, compression_name).c_str());
    printf("  header CRC    %s, %s\n", hex(h.header_crc, 8).c_str(),
           kernel.header_crc_good ? "good" : "wrong");
}

void print_text(const PackageInfo& p)
{
    printf("%s\n", p.file.path.c_str());
    printf("marker   %s\n", marker_text(p.header.marker).c_str());
    printf("version  %d (header of %u bytes)\n", p.header.version, p.header.length);
    printf("length   %lld bytes", static_cast<long long>(p.file.size));
    if (p.file.size != p.header.total())
        printf(", but header and images are %lld bytes", static_cast<long long>(p.header.total()));
    printf("\nimages       offset       bytes  CRC-32      partition\n");
    for (unsigned i = 0; i < 3; ++i)
        printf("  %s %10lld  %10u  %s  /dev/mtd%u  %s\n", kImages[i],
               static_cast<long long>(p.header.offset(i)), p.header.size[i], hex(p.crc[i], 8).c_str(), i + 1,
               kContents[i]);
    if (p.kernel) print_kernel(*p.kernel);
}

void put_kernel(Json& json, const KernelInfo& kernel)
{
    const ImageHeader& h = kernel.header;
    json.open("kernel", '{');
    json.text("name", kernel.name);
    json.number("time", kernel.time);
    json.number("data_bytes", h.data_size);
    json.text("data_crc32", hex(h.data_crc, 8));
    json.text("load", hex(kernel.load, 8));
    json.text("entry", hex(kernel.entry, 8));
    json.number("architecture", h.architecture);
    json.text("architecture_name", architecture_name(h.architecture));
    json.number("type", h.type);
    json.text("type_name", type_name(h.type));
    json.number("compression", h.compression);
    json.text("compression_name", compression_name(h.compression));
    json.boolean("header_crc_good", kernel.header_crc_good);
    json.close('}');
}

void print_json(const PackageInfo& p)
{
    Json json;
    json.open(nullptr, '{');
    json.text("file", p.file.path);
    json.number("file_bytes", p.file.size);
    std::string marker;
    for (int i = 0; i < 4; ++i) marker += char(p.header.marker >> 8 * i);
    json.text("marker", marker);
    json.number("version", p.header.version);
    json.number("header_bytes", p.header.length);
    json.boolean("sizes_good", p.file.size == p.header.total());
    json.open("images", '[');
    for (unsigned i = 0; i < 3; ++i) {
        json.open(nullptr, '{');
        json.text("name", kImages[i]);
        json.text("partition", "/dev/mtd" + std::to_string(i + 1));
        json.number("offset", p.header.offset(i));
        json.number("bytes", p.header.size[i]);
        json.text("crc32", hex(p.crc[i], 8));
        json.close('}');
    }
    json.close(']');
    if (p.kernel) put_kernel(json, *p.kernel);
    json.close('}');
    puts(json.str().c_str());
}

} // namespace

int info(int argc, char** argv)
{
    static constexpr option kLong[] = {{"json", no_argument, nullptr, 'j'}, {}};
    bool json = false, usage = false;
    for (int c; (c = getopt_long(argc, argv, "", kLong, nullptr)) != -1;) (c == 'j' ? json : usage) = true;
    if (usage || argc - optind != 1) {
        fputs("usage: fwpkg info [--json] PACKAGE\n", stderr);
        return kTrouble;
    }
    PackageInfo package;
    package.file.open(argv[optind]);
    if (Finding finding = read_header(package.file, package.header)) {
        fprintf(stderr, "fwpkg: %s: %s\n", package.file.path.c_str(), describe(finding).c_str());
        return kRefused;
    }
    for (unsigned i = 0; i < 3; ++i)
        package.crc[i] = stretch_crc(package.file.fd.get(), package.header.offset(i), package.header.size[i]);
    package.kernel = read_kernel(package);
    (json ? print_json : print_text)(package);
    return kGood;
}

} // namespace fwpkg
