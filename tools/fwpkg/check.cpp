// fwpkg check: what a device would say to a package.
#include "tools/fwpkg/check.hpp"

#include "common/base/parse_int.hpp"
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/progress.hpp"
#include "upgrade/log.hpp"

#include <cstdio>
#include <getopt.h>
#include <unistd.h>

namespace fwpkg {

using namespace zep;

Finding check_package(const Input& package, const Expected& device, bool compare_marker,
                      PackageHeader& header)
{
    Progress progress("checking", package.fd.get(), package.size);
    lseek(package.fd.get(), 0, SEEK_SET);
    if (Finding f = check_header(package.fd.get(), device, compare_marker, header)) return f;
    if (Finding f = check_sizes(header, package.size)) return f;
    return check_contents(package.fd.get(), header);
}

namespace {

struct CheckOptions {
    const char* marker = "3510"; // what a device without files of its own expects
    int32_t version = 1;
    bool compare_marker = true;
    bool log = false;
};

constexpr option kLong[] = {
    {"marker", required_argument, nullptr, 'm'},
    {"any-marker", no_argument, nullptr, 'a'},
    {"version", required_argument, nullptr, 'V'},
    {"log", no_argument, nullptr, 'l'},
    {},
};

bool parse(int argc, char** argv, CheckOptions& options)
{
    for (int c; (c = getopt_long(argc, argv, "", kLong, nullptr)) != -1;) {
        switch (c) {
        case 'm':
            options.marker = optarg;
            break;
        case 'a':
            options.compare_marker = false;
            break;
        case 'V':
            options.version = parse_int(optarg);
            break;
        case 'l':
            options.log = true;
            break;
        default:
            return false;
        }
    }
    return argc - optind == 1;
}

} // namespace

int check(int argc, char** argv)
{
    CheckOptions options;
    if (!parse(argc, argv, options)) {
        fputs("usage: fwpkg check [--marker TEXT | --any-marker] [--version N] [--log] PACKAGE\n", stderr);
        return kTrouble;
    }
    log_redirect([](const char*) {});
    if (options.log) log_redirect([](const char* line) { printf("device log: %s", line); });
    Input package;
    package.open(argv[optind]);

    Expected device{marker_word(options.marker), options.version, ""};
    PackageHeader header;
    Finding finding = check_package(package, device, options.compare_marker, header);
    if (finding) {
        printf("%s: refused: %s\n", package.path.c_str(), describe(finding).c_str());
        return kRefused;
    }
    printf("%s: good: version %d, marker %s, %lld bytes\n", package.path.c_str(), header.version,
           marker_text(header.marker).c_str(), static_cast<long long>(package.size));
    return kGood;
}

} // namespace fwpkg
