// fwpkg extract: a package's images as files.
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/file.hpp"
#include "tools/fwpkg/progress.hpp"
#include "tools/fwpkg/read_header.hpp"

#include <cerrno>
#include <cstdio>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fwpkg {
namespace {

struct ExtractOptions {
    std::string folder = ".";
    bool force = false;
};

constexpr option kLong[] = {
    {"directory", required_argument, nullptr, 'd'}, {"force", no_argument, nullptr, 'f'}, {}};

bool parse(int argc, char** argv, ExtractOptions& options)
{
    for (int c; (c = getopt_long(argc, argv, "d:", kLong, nullptr)) != -1;) {
        switch (c) {
        case 'd':
            options.folder = optarg;
            break;
        case 'f':
            options.force = true;
            break;
        default:
            return false;
        }
    }
    return argc - optind == 1;
}

bool write_image(const Input& package, const zep::PackageHeader& header, unsigned image,
                 const std::string& path)
{
    Output output(path);
    if (!output.create()) return false;
    lseek(package.fd.get(), header.offset(image), SEEK_SET);
    if (!copy_bytes(package.fd.get(), output.fd(), header.size[image])) {
        complain(path);
        return false;
    }
    return output.commit();
}

} // namespace

int extract(int argc, char** argv)
{
    ExtractOptions options;
    if (!parse(argc, argv, options)) {
        fputs("usage: fwpkg extract [-d FOLDER] [--force] PACKAGE\n", stderr);
        return kTrouble;
    }
    Input package;
    if (!package.open(argv[optind])) return kTrouble;
    zep::PackageHeader header;
    zep::Finding finding = read_header(package, header);
    if (!finding) finding = zep::check_sizes(header, package.size);
    if (finding) {
        fprintf(stderr, "fwpkg: %s: %s\n", package.path.c_str(), describe(finding).c_str());
        return kRefused;
    }
    if (mkdir(options.folder.c_str(), 0777) < 0 && errno != EEXIST) {
        complain(options.folder);
        return kTrouble;
    }
    Progress progress("extracting", package.fd.get(), package.size);
    for (unsigned i = 0; i < 3; ++i) {
        std::string path = options.folder + "/flash" + std::to_string(i + 1) + ".img";
        if (!options.force && access(path.c_str(), F_OK) == 0) {
            complain(path, "exists already");
            return kTrouble;
        }
        if (!write_image(package, header, i, path)) return kTrouble;
    }
    return kGood;
}

} // namespace fwpkg
