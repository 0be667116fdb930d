// fwpkg build: three images to one package.
#include "tools/fwpkg/check.hpp"
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/manifest.hpp"
#include "tools/fwpkg/progress.hpp"
#include "tools/fwpkg/read_header.hpp"
#include "upgrade/log.hpp"

#include "common/base/bytes.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <unistd.h>

namespace fwpkg {
namespace {

namespace fs = std::filesystem;

struct BuildOptions {
    std::string output, manifest;
    std::string marker = "3510";
    int version = 1;
    int64_t page = 512; // the applets write in chunks of this size, and NAND refuses a part of a page
    bool force = false, allow_empty = false;
};

using Images = std::array<Input, 3>;

std::string marker(const std::string& text)
{
    if (text.size() != 4) throw cli::WrongUse("give four characters");
    return text;
}

// More than an erase block would put padding where the settings image must have a node.
int64_t page_size(const std::string& text)
{
    const int64_t size = cli::whole_number(text, 1, zep::kJffs2EraseBlock);
    if (size & (size - 1)) throw cli::WrongUse("give a power of two up to 65536");
    return size;
}

cli::Syntax syntax(BuildOptions& o)
{
    return {
        {{"-o,--output", "PACKAGE", "the file to write, - for standard output; needed",
          [&](auto& v) { o.output = v; }},
         {"--version", "1|3", "layout of the header: 1 (20 bytes, the default) or 3 (64 bytes)",
          [&](auto& v) {
              o.version = cli::one_of(v, {"1", "3"})[0] - '0';
          }},
         {"--marker", "TEXT", "the four characters that the package begins with (3510)",
          [&](auto& v) { o.marker = marker(v); }},
         {"--page-size", "BYTES", "pad each image to whole pages, a power of two up to 65536 (512)",
          [&](auto& v) { o.page = page_size(v); }},
         {"--manifest", "FILE", "also write sizes and SHA-256 of package and images, as JSON for fwpkg check",
          [&](auto& v) { o.manifest = cli::given(v); }},
         {"--allow-empty", nullptr, "take an empty image: such a package erases the partition",
          [&](auto&) { o.allow_empty = true; }},
         {"--force", nullptr, "keep a package that a device would refuse; replace any file",
          [&](auto&) { o.force = true; }}},
        {{"KERNEL", cli::Operand::file}, {"ROOTFS", cli::Operand::file}, {"SETTINGS", cli::Operand::file}}};
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

void open_images(const cli::Arguments& paths, const BuildOptions& options, Images& images)
{
    for (size_t i = 0; i < images.size(); ++i) {
        Input& image = images[i];
        image.open(paths[i]);
        if (image.size == 0 && !options.allow_empty)
            fail(image.path, "is empty, and a device would erase the partition; --allow-empty takes it");
        if (image.size + padding(image, options.page) > int64_t(UINT32_MAX))
            fail(image.path, "longer than a package's size field can say");
    }
}

// Also of a file that is not there yet.
fs::path canonical(const std::string& path) { return fs::weakly_canonical(fs::absolute(path)); }

Input reread(int fd)
{
    Input package;
    package.fd.reset(dup(fd));
    package.size = lseek(fd, 0, SEEK_END);
    return package;
}

// What was written, judged as a device with this marker and version would.
zep::Finding judge(const BuildOptions& options, int fd, zep::PackageHeader& header)
{
    zep::Expected device{zep::marker_word(options.marker.c_str()), options.version, ""};
    return check_package(reread(fd), device, true, header);
}

// Of a fault in an image the input's own name and offset come first: that file is what its user can mend.
std::string refusal(const BuildOptions& options, const Images& images, const zep::PackageHeader& header,
                    const zep::Finding& finding)
{
    for (unsigned i = 0; i < 3; ++i) {
        const int64_t offset = finding.offset - header.offset(i);
        if (offset < 0 || offset >= images[i].size) continue;
        zep::Finding in_image = finding;
        in_image.offset = offset;
        return images[i].path + ": a device would refuse it: " + describe(in_image) + "; offset " +
               std::to_string(finding.offset) + " in the package";
    }
    return options.output + ": a device would refuse it: " + describe(finding);
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

int build(const cli::Arguments& arguments)
{
    BuildOptions options;
    const cli::Words words = cli::parse(arguments, syntax(options));
    if (options.output.empty()) throw cli::WrongUse("missing -o PACKAGE, the file to write");
    zep::log_redirect([](const char*) {});
    Images images;
    open_images(words.plain, options, images);
    cli::OutputFile output(options.output, {"a firmware package", is_package, options.force, 0666, true},
                           words.plain);
    std::optional<cli::OutputFile> manifest;
    if (!options.manifest.empty()) {
        if (canonical(options.manifest) == canonical(options.output))
            throw cli::WrongUse("--manifest " + options.manifest +
                                ": is the package itself; name another file");
        manifest.emplace(options.manifest, cli::OutputRule{"a manifest", is_manifest, options.force},
                         words.plain);
    }
    write_package(options, images, output);

    zep::PackageHeader header;
    if (zep::Finding finding = judge(options, output.fd(), header)) {
        fprintf(stderr, "fwpkg: %s\n", refusal(options, images, header, finding).c_str());
        if (!options.force) return kRefused;
    }
    if (manifest) manifest->write(manifest_of(reread(output.fd()), header));
    output.commit();
    if (manifest) manifest->commit();
    return kGood;
}

} // namespace fwpkg
