// fwpkg extract: a package's images as files.
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/file.hpp"
#include "tools/fwpkg/progress.hpp"
#include "tools/fwpkg/read_header.hpp"

#include <cerrno>
#include <cstdio>
#include <getopt.h>
#include <list>
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

std::string image_path(const ExtractOptions& options, unsigned image)
{
    return options.folder + "/flash" + std::to_string(image + 1) + ".img";
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
    package.open(argv[optind]);
    zep::PackageHeader header;
    zep::Finding finding = read_header(package, header);
    if (!finding) finding = zep::check_sizes(header, package.size);
    if (finding) {
        fprintf(stderr, "fwpkg: %s: %s\n", package.path.c_str(), describe(finding).c_str());
        return kRefused;
    }
    if (mkdir(options.folder.c_str(), 0777) < 0 && errno != EEXIST) fail(options.folder);
    // All three places are looked at before the first is written.
    std::list<cli::OutputFile> outputs;
    for (unsigned i = 0; i < 3; ++i)
        outputs.emplace_back(image_path(options, i), cli::OutputRule{nullptr, nullptr, options.force})
            .keep_apart(package.fd.get());
    Progress progress("extracting", package.fd.get(), package.size);
    lseek(package.fd.get(), header.offset(0), SEEK_SET);
    unsigned image = 0;
    for (cli::OutputFile& output : outputs) {
        copy_bytes(package, output, header.size[image++]);
        output.commit();
    }
    return kGood;
}

} // namespace fwpkg
