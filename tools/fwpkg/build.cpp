// fwpkg build: three images to one package.
#include "tools/fwpkg/check.hpp"
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/progress.hpp"
#include "tools/fwpkg/read_header.hpp"
#include "upgrade/log.hpp"

#include "common/base/bytes.hpp"
#include "common/base/parse_int.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <unistd.h>

namespace fwpkg {
namespace {

struct BuildOptions {
    const char* output = nullptr;
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
    if (!options.output) return false;
    if (options.marker.size() != 4) fail(options.marker, "a marker is four characters");
    if (options.version != 1 && options.version != 3)
        fail(std::to_string(options.version), "the known versions are 1 and 3");
    // More than an erase block would put padding where the settings image must have a node.
    if (options.page < 1 || options.page > zep::kJffs2EraseBlock || (options.page & (options.page - 1)))
        fail(std::to_string(options.page), "a page size is a power of two up to 65536");
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

// A package of either version: its first eight bytes say so, its size agrees with its header.
bool is_package(int fd, off_t size)
{
    Input package{"", zep::Fd(dup(fd)), size};
    zep::PackageHeader header;
    return !read_header(package, header) && !zep::check_sizes(header, size);
}

void open_images(char** paths, const BuildOptions& options, Images& images)
{
    for (Input& image : images) {
        image.open(*paths++);
        if (image.size + padding(image, options.page) > int64_t(UINT32_MAX))
            fail(image.path, "longer than a package's size field can say");
    }
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

// Erased flash reads 0xFF, so such padding leaves the flash behind the image as it was erased.
void write_package(const BuildOptions& options, const Images& images, cli::OutputFile& to)
{
    std::string header = header_bytes(options, images);
    int64_t total = int64_t(header.size());
    for (const Input& image : images) total += image.size + padding(image, options.page);
    to.begin();
    Progress progress("writing", to.fd(), total);
    to.write(header);
    for (const Input& image : images) {
        copy_bytes(image, to, image.size);
        to.write(std::string(size_t(padding(image, options.page)), char(0xFF)));
    }
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
    open_images(argv + optind, options, images);
    cli::OutputFile output(options.output, {"a firmware package", is_package, options.force});
    for (const Input& image : images) output.keep_apart(image.fd.get());
    write_package(options, images, output);

    if (zep::Finding finding = judge(options, output.fd())) {
        fprintf(stderr, "fwpkg: %s: a device would refuse it: %s\n", options.output,
                describe(finding).c_str());
        if (!options.force) return kRefused;
    }
    output.commit();
    return kGood;
}

} // namespace fwpkg
