// fwpkg build: three images to one package.
#include "tools/fwpkg/check.hpp"
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/progress.hpp"
#include "upgrade/log.hpp"

#include "common/base/bytes.hpp"
#include "common/base/parse_int.hpp"
#include "common/base/whole_io.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <unistd.h>
#include <vector>

namespace fwpkg {
namespace {

struct BuildOptions {
    std::string output;
    std::string marker = "3510";
    int version = 1;
    int64_t page = 512; // the applets write in chunks of this size, and NAND refuses a part of a page
    bool force = false;
};

using Images = std::array<Input, 3>;

constexpr option kLong[] = {
    {"output", required_argument, nullptr, 'o'}, {"version", required_argument, nullptr, 'V'},
    {"marker", required_argument, nullptr, 'm'}, {"page-size", required_argument, nullptr, 'p'},
    {"force", no_argument, nullptr, 'f'},        {},
};

bool valid(const BuildOptions& options)
{
    if (options.output.empty()) return false;
    if (options.marker.size() != 4) {
        complain(options.marker, "a marker is four characters");
        return false;
    }
    if (options.version != 1 && options.version != 3) {
        complain(std::to_string(options.version), "the known versions are 1 and 3");
        return false;
    }
    // More than an erase block would put padding where the settings image must have a node.
    if (options.page < 1 || options.page > zep::kJffs2EraseBlock || (options.page & (options.page - 1))) {
        complain(std::to_string(options.page), "a page size is a power of two up to 65536");
        return false;
    }
    return true;
}

bool parse(int argc, char** argv, BuildOptions& options)
{
    for (int c; (c = getopt_long(argc, argv, "o:", kLong, nullptr)) != -1;) {
        switch (c) {
        case 'o':
            options.output = optarg;
            break;
        case 'V':
            options.version = zep::parse_int(optarg);
            break;
        case 'm':
            options.marker = optarg;
            break;
        case 'p':
            options.page = zep::parse_int(optarg);
            break;
        case 'f':
            options.force = true;
            break;
        default:
            return false;
        }
    }
    return argc - optind == 3 && valid(options);
}

int64_t padding(const Input& image, int64_t page) { return (page - image.size % page) % page; }

std::string header_bytes(const BuildOptions& options, const Images& images)
{
    std::string bytes = options.marker;
    zep::append_le32(bytes, uint32_t(options.version));
    if (options.version == 3) zep::append_le32(bytes, 0);
    for (const Input& image : images)
        zep::append_le32(bytes, uint32_t(image.size + padding(image, options.page)));
    if (options.version == 3) bytes.resize(64);
    return bytes;
}

// Erased flash reads 0xFF, so such padding leaves the flash behind the image as it was erased.
bool write_image(int to, const Input& image, int64_t pad)
{
    std::vector<char> fill(size_t(pad), char(0xFF));
    if (copy_bytes(image.fd.get(), to, image.size) && zep::write_fully(to, fill.data(), fill.size()))
        return true;
    complain(image.path);
    return false;
}

bool open_images(char** paths, const BuildOptions& options, Images& images)
{
    for (Input& image : images) {
        if (!image.open(*paths++)) return false;
        if (image.size + padding(image, options.page) > int64_t(UINT32_MAX)) {
            complain(image.path, "longer than a package's size field can say");
            return false;
        }
    }
    return true;
}

// What was written, judged as a device with this marker and version would.
zep::Finding judge(const BuildOptions& options, int fd)
{
    Input package;
    package.fd.reset(dup(fd));
    package.size = lseek(fd, 0, SEEK_END);
    zep::Expected device{zep::marker_word(options.marker.c_str()), options.version, ""};
    zep::PackageHeader header;
    return check_package(package, device, true, header);
}

bool write_package(const BuildOptions& options, const Images& images, int to)
{
    std::string header = header_bytes(options, images);
    int64_t total = int64_t(header.size());
    for (const Input& image : images) total += image.size + padding(image, options.page);
    Progress progress("writing", to, total);
    if (!zep::write_fully(to, header.data(), header.size())) {
        complain(options.output);
        return false;
    }
    for (const Input& image : images)
        if (!write_image(to, image, padding(image, options.page))) return false;
    return true;
}

} // namespace

int build(int argc, char** argv)
{
    BuildOptions options;
    if (!parse(argc, argv, options)) {
        fputs("usage: fwpkg build -o PACKAGE [--version 1|3] [--marker TEXT] [--page-size BYTES] [--force]\n"
              "                   KERNEL ROOTFS SETTINGS\n",
              stderr);
        return kTrouble;
    }
    zep::log_redirect([](const char*) {});
    Images images;
    if (!open_images(argv + optind, options, images)) return kTrouble;
    Output output(options.output);
    if (!output.create() || !write_package(options, images, output.fd())) return kTrouble;

    if (zep::Finding finding = judge(options, output.fd())) {
        fprintf(stderr, "fwpkg: %s: a device would refuse it: %s\n", options.output.c_str(),
                describe(finding).c_str());
        if (!options.force) return kRefused;
    }
    return output.commit() ? kGood : kTrouble;
}

} // namespace fwpkg
