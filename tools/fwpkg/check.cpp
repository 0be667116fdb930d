// fwpkg check: what a device would say to a package.
#include "tools/fwpkg/check.hpp"

#include "tools/cli/json.hpp"
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/manifest.hpp"
#include "tools/fwpkg/partitions.hpp"
#include "tools/fwpkg/prediction.hpp"
#include "tools/fwpkg/progress.hpp"
#include "tools/fwpkg/sums.hpp"
#include "tools/fwpkg/read_header.hpp"
#include "upgrade/log.hpp"

#include <cstdio>
#include <optional>
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
    std::string against, manifest;
};

// What is known of a package beside the device's verdict: sums of the parts that the file holds whole.
struct Checked {
    Input file;
    PackageHeader header;
    Finding finding;
    std::string problem; // "" for a good one
    std::optional<Sums> whole, image[3];
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
         {"--manifest", "FILE", "compare sizes and sums with what fwpkg build --manifest wrote",
          [&](auto& v) { o.manifest = cli::given(v); }},
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

void print_checked(const Checked& p, const CheckOptions& options)
{
    const char* path = p.file.path.c_str();
    if (p.problem.empty())
        printf("%s: %s: version %d, marker %s, %lld bytes\n", path,
               cli::paint(STDOUT_FILENO, cli::Style::good, "good").c_str(), p.header.version,
               marker_text(p.header.marker).c_str(), static_cast<long long>(p.file.size));
    else
        printf("%s: %s: %s\n", path, cli::paint(STDOUT_FILENO, cli::Style::bad, "refused").c_str(),
               p.problem.c_str());
    if (p.whole) printf("%s: SHA-256 %s\n", path, p.whole->sha256.c_str());
    for (unsigned i = 0; i < 3; ++i)
        if (p.image[i]) printf("%s: %s: SHA-256 %s\n", path, kImages[i], p.image[i]->sha256.c_str());
    printf("%s: %s\n", path, kNoSum);
    if (!options.against.empty() && p.problem.empty())
        print_prediction(path, p.header, read_partitions(options.against));
}

void print_checked_json(const Checked& p, const CheckOptions& options)
{
    cli::Json json = {
        {"file", p.file.path}, {"file_bytes", p.file.size}, {"good", p.problem.empty()}, {"sha256", nullptr}};
    if (p.whole) json["sha256"] = p.whole->sha256;
    if (p.problem.empty()) {
        json["version"] = p.header.version;
        json["marker"] = marker_bytes(p.header.marker);
    } else {
        json["reason"] = p.problem;
    }
    if (p.finding) json["finding"] = {{"offset", p.finding.offset}, {"text", describe(p.finding)}};
    json["images"] = cli::Json::array();
    for (unsigned i = 0; i < 3; ++i)
        if (p.image[i])
            json["images"].push_back(
                {{"name", kImageNames[i]}, {"bytes", p.header.size[i]}, {"sha256", p.image[i]->sha256}});
    json["unchecked"] = {kNoSum};
    if (!options.against.empty() && p.problem.empty())
        json["upgrade"] = prediction_json(p.header, read_partitions(options.against));
    cli::print_json(json, 2);
}

std::string problem_of(const Checked& p, const CheckOptions& options)
{
    if (p.finding) return describe(p.finding);
    if (auto problem = size_problem(p.header, options); !problem.empty()) return problem;
    if (options.manifest.empty()) return "";
    const std::string other = compare_with_manifest(options.manifest, p.file, p.header);
    return other.empty() ? "" : "it is not what " + options.manifest + " describes: " + other;
}

// A header that a device refuses may still say where the images are.
void add_sums(Checked& p)
{
    const int fd = p.file.fd.get();
    p.whole = sums_of(fd, 0, p.file.size);
    PackageHeader header;
    if (read_header(p.file, header) || check_sizes(header, p.file.size)) return;
    p.header = header;
    for (unsigned i = 0; i < 3; ++i) p.image[i] = sums_of(fd, header.offset(i), header.size[i]);
}

} // namespace

int check(const cli::Arguments& arguments)
{
    CheckOptions options;
    const cli::Words words = cli::parse(arguments, syntax(options));
    log_redirect([](const char*) {});
    if (options.log) log_redirect([](const char* line) { printf("device log: %s", line); });
    Checked package;
    package.file.open(words.plain[0]);
    // A wrong file to compare with is said of a package that is refused anyway, too.
    if (!options.against.empty()) read_partitions(options.against);
    if (!options.manifest.empty()) require_manifest(options.manifest);

    Expected device{marker_word(options.marker.c_str()), options.version, ""};
    package.finding = check_package(package.file, device, options.compare_marker, package.header);
    package.problem = problem_of(package, options);
    add_sums(package);
    options.json ? print_checked_json(package, options) : print_checked(package, options);
    return package.problem.empty() ? kGood : kRefused;
}

} // namespace fwpkg
