// fwpkg extract: a package's images as files.
#include "tools/fwpkg/commands.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/file.hpp"
#include "tools/fwpkg/progress.hpp"
#include "tools/fwpkg/read_header.hpp"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <list>
#include <sys/stat.h>
#include <unistd.h>

namespace fwpkg {
namespace {

struct ExtractOptions {
    std::string folder = ".";
    bool force = false;
};

cli::Syntax syntax(ExtractOptions& o)
{
    return {{{"-d,--directory", "FOLDER", "where to write flash1.img to flash3.img; made if missing (.)",
              [&](auto& v) { o.folder = v; }},
             {"--force", nullptr, "replace files that are there", [&](auto&) { o.force = true; }}},
            {{"PACKAGE", cli::Operand::file}}};
}

std::string image_path(const ExtractOptions& options, unsigned image)
{
    return options.folder + "/flash" + std::to_string(image + 1) + ".img";
}

void make_folder(const std::string& path)
{
    if (mkdir(path.c_str(), 0777) == 0 || errno == EEXIST) return;
    const std::string parent = std::filesystem::path(path).parent_path().string();
    if (errno == ENOENT && !parent.empty())
        fail(path, ("there is no folder " + parent + "; make it first").c_str());
    fail(path);
}

} // namespace

int extract(const cli::Arguments& arguments)
{
    ExtractOptions options;
    const cli::Words words = cli::parse(arguments, syntax(options));
    Input package;
    package.open(words.plain[0]);
    zep::PackageHeader header;
    zep::Finding finding = read_header(package, header);
    if (!finding) finding = zep::check_sizes(header, package.size);
    if (finding) {
        fprintf(stderr, "fwpkg: %s: %s\n", package.path.c_str(), describe(finding).c_str());
        return kRefused;
    }
    make_folder(options.folder);
    // All three places are looked at before the first is written.
    std::list<cli::OutputFile> outputs;
    for (unsigned i = 0; i < 3; ++i)
        outputs.emplace_back(image_path(options, i),
                             cli::OutputRule{nullptr, nullptr, options.force, 0666, true}, words.plain);
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
