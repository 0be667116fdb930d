// fwpkg info: what a package holds, in words or as JSON.
#include "tools/cli/json.hpp"
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/file.hpp"
#include "tools/fwpkg/manifest.hpp"
#include "tools/fwpkg/read_header.hpp"
#include "tools/fwpkg/sums.hpp"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <optional>
#include <unistd.h>

namespace fwpkg {
namespace {

using namespace zep;

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
    std::optional<Sums> whole, image[3]; // of what the file holds whole
    std::optional<KernelInfo> kernel;
};

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

void print_info(const PackageInfo& p)
{
    printf("%s\n", p.file.path.c_str());
    printf("marker   %s\n", marker_text(p.header.marker).c_str());
    printf("version  %d (header of %u bytes)\n", p.header.version, p.header.length);
    printf("length   %lld bytes", static_cast<long long>(p.file.size));
    if (p.file.size != p.header.total())
        printf(", but header and images are %lld bytes", static_cast<long long>(p.header.total()));
    printf("\nimages       offset       bytes  CRC-32      partition\n");
    for (unsigned i = 0; i < 3; ++i)
        printf("  %s %10lld  %10u  %s  /dev/mtd%u  %s\n", kImageNames[i],
               static_cast<long long>(p.header.offset(i)), p.header.size[i],
               p.image[i] ? hex(p.image[i]->crc32, 8).c_str() : "cut short ", i + 1, kContents[i]);
    puts("SHA-256");
    if (p.whole) printf("  package %s\n", p.whole->sha256.c_str());
    for (unsigned i = 0; i < 3; ++i)
        if (p.image[i]) printf("  %s  %s\n", kImageNames[i], p.image[i]->sha256.c_str());
    if (p.kernel) print_kernel(*p.kernel);
}

cli::Json kernel_json(const KernelInfo& kernel)
{
    const ImageHeader& h = kernel.header;
    return {{"name", kernel.name},
            {"time", kernel.time},
            {"data_bytes", h.data_size},
            {"data_crc32", hex(h.data_crc, 8)},
            {"load", hex(kernel.load, 8)},
            {"entry", hex(kernel.entry, 8)},
            {"architecture", h.architecture},
            {"architecture_name", architecture_name(h.architecture)},
            {"type", h.type},
            {"type_name", type_name(h.type)},
            {"compression", h.compression},
            {"compression_name", compression_name(h.compression)},
            {"header_crc_good", kernel.header_crc_good}};
}

void print_info_json(const PackageInfo& p)
{
    cli::Json json = {{"file", p.file.path},
                      {"file_bytes", p.file.size},
                      {"marker", marker_bytes(p.header.marker)},
                      {"version", p.header.version},
                      {"header_bytes", p.header.length},
                      {"sizes_good", p.file.size == p.header.total()},
                      {"sha256", nullptr}};
    if (p.whole) json["sha256"] = p.whole->sha256;
    for (unsigned i = 0; i < 3; ++i) {
        cli::Json image = {{"name", kImageNames[i]},
                           {"partition", "/dev/mtd" + std::to_string(i + 1)},
                           {"offset", p.header.offset(i)},
                           {"bytes", p.header.size[i]},
                           {"crc32", nullptr},
                           {"sha256", nullptr}};
        if (p.image[i]) {
            image["crc32"] = hex(p.image[i]->crc32, 8);
            image["sha256"] = p.image[i]->sha256;
        }
        json["images"].push_back(image);
    }
    if (p.kernel) json["kernel"] = kernel_json(*p.kernel);
    cli::print_json(json, 2);
}

} // namespace

int info(const cli::Arguments& arguments)
{
    bool json = false;
    const cli::Words words =
        cli::parse(arguments, {{{"--json", nullptr, "for programs", [&](auto&) { json = true; }}},
                               {{"PACKAGE", cli::Operand::file}}});
    PackageInfo package;
    package.file.open(words.plain[0]);
    if (Finding finding = read_header(package.file, package.header)) {
        fprintf(stderr, "fwpkg: %s: %s\n", package.file.path.c_str(), describe(finding).c_str());
        return kRefused;
    }
    const int fd = package.file.fd.get();
    package.whole = sums_of(fd, 0, package.file.size);
    for (unsigned i = 0; i < 3; ++i)
        package.image[i] = sums_of(fd, package.header.offset(i), package.header.size[i]);
    package.kernel = read_kernel(package);
    (json ? print_info_json : print_info)(package);
    return kGood;
}

} // namespace fwpkg
