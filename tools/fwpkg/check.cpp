// fwpkg check: what a device would say to a package.
#include "tools/fwpkg/check.hpp"

#include "tools/cli/json.hpp"
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/partitions.hpp"
#include "tools/fwpkg/progress.hpp"
#include "upgrade/log.hpp"

#include <cstdio>
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

constexpr const char* kImages[] = {"kernel", "root file system", "settings"};
constexpr const char* kNoSum = "root file system: no checksum in this format";

struct CheckOptions {
    std::string marker = "3510"; // what a device without files of its own expects
    int32_t version = 1;
    bool compare_marker = true, log = false, json = false, allow_empty = false;
    std::string against;
};

cli::Syntax syntax(CheckOptions& o)
{
    return {
        {{"--marker", "TEXT", "the marker that the device expects; its first four characters count (3510)",
          [&](auto& v) { o.marker = v; }},
         {"--any-marker", nullptr, "do not compare the marker, as the applet upgrade does not",
          [&](auto&) { o.compare_marker = false; }},
         {"--version", "N", "the version that the device expects (1)",
          [&](auto& v) { o.version = int32_t(cli::whole_number(v, 0, INT32_MAX)); }},
         {"--against", "CAMERA", "check that the images fit: a virtual camera, or a file of mtdN=SIZE lines",
          [&](auto& v) { o.against = v; }},
         {"--allow-empty", nullptr, "take an empty image, with which a device erases the partition",
          [&](auto&) { o.allow_empty = true; }},
         {"--log", nullptr, "show the lines that the device's system log would hold",
          [&](auto&) { o.log = true; }},
         {"--json", nullptr, "for programs", [&](auto&) { o.json = true; }}},
        {{"PACKAGE", cli::Operand::file}}};
}

// Why the sizes would not do for a device, image by image; the checks of the device do not ask.
std::string size_problem(const PackageHeader& header, const CheckOptions& options)
{
    for (unsigned i = 0; i < 3 && !options.allow_empty; ++i)
        if (header.size[i] == 0)
            return std::string(kImages[i]) + " image is empty: a device would erase /dev/mtd" +
                   std::to_string(i + 1) + "; --allow-empty takes it";
    if (options.against.empty()) return {};
    const auto partitions = read_partitions(options.against);
    for (unsigned i = 0; i < 3; ++i)
        if (header.size[i] > partitions[i].size)
            return std::string(kImages[i]) + " image of " + std::to_string(header.size[i]) +
                   " bytes does not fit /dev/mtd" + std::to_string(i + 1) + " of " +
                   std::to_string(partitions[i].size) + " bytes in " + options.against;
    return {};
}

void print_fit(const Input& package, const PackageHeader& header, const CheckOptions& options)
{
    if (options.against.empty()) return;
    const auto partitions = read_partitions(options.against);
    for (unsigned i = 0; i < 3; ++i) {
        const Flash& flash = partitions[i];
        printf("%s: %s: %u of %lld bytes of /dev/mtd%u", package.path.c_str(), kImages[i], header.size[i],
               static_cast<long long>(flash.size), i + 1);
        if (flash.erase_size)
            printf(", %lld erase blocks",
                   static_cast<long long>((header.size[i] + flash.erase_size - 1) / flash.erase_size));
        puts("");
    }
}

void print_verdict(const Input& package, const PackageHeader& header, const std::string& problem)
{
    if (problem.empty())
        printf("%s: %s: version %d, marker %s, %lld bytes\n", package.path.c_str(),
               cli::paint(STDOUT_FILENO, cli::Style::good, "good").c_str(), header.version,
               marker_text(header.marker).c_str(), static_cast<long long>(package.size));
    else
        printf("%s: %s: %s\n", package.path.c_str(),
               cli::paint(STDOUT_FILENO, cli::Style::bad, "refused").c_str(), problem.c_str());
    printf("%s: %s\n", package.path.c_str(), kNoSum);
}

void print_json(const Input& package, const PackageHeader& header, const Finding& finding,
                const std::string& problem)
{
    cli::Json json = {{"file", package.path}, {"file_bytes", package.size}, {"good", problem.empty()}};
    if (problem.empty()) {
        json["version"] = header.version;
        json["marker"] = marker_bytes(header.marker);
    } else {
        json["reason"] = problem;
    }
    if (finding) json["finding"] = {{"offset", finding.offset}, {"text", describe(finding)}};
    json["unchecked"] = {kNoSum};
    cli::print_json(json, 2);
}

} // namespace

int check(const cli::Arguments& arguments)
{
    CheckOptions options;
    const cli::Words words = cli::parse(arguments, syntax(options));
    log_redirect([](const char*) {});
    if (options.log) log_redirect([](const char* line) { printf("device log: %s", line); });
    Input package;
    package.open(words.plain[0]);

    Expected device{marker_word(options.marker.c_str()), options.version, ""};
    PackageHeader header;
    const Finding finding = check_package(package, device, options.compare_marker, header);
    const std::string problem = finding ? describe(finding) : size_problem(header, options);
    if (options.json) {
        print_json(package, header, finding, problem);
    } else {
        print_verdict(package, header, problem);
        if (problem.empty()) print_fit(package, header, options);
    }
    return problem.empty() ? kGood : kRefused;
}

} // namespace fwpkg
