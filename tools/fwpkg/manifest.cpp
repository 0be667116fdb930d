// A package's manifest: its sums beside it.
#include "tools/fwpkg/manifest.hpp"

#include "tools/cli/json.hpp"
#include "tools/fwpkg/describe.hpp"
#include "tools/fwpkg/sums.hpp"

#include <unistd.h>

namespace fwpkg {
namespace {

constexpr const char* kFormat = "zep package manifest 1";
constexpr int64_t kMostBytes = 1 << 20; // a manifest has a kilobyte

std::string sha256_of(const Input& package, int64_t offset, int64_t size)
{
    const auto sums = sums_of(package.fd.get(), offset, size);
    return sums ? sums->sha256 : "";
}

cli::Json json_of(const Input& package, const zep::PackageHeader& header)
{
    cli::Json json = {{"format", kFormat},
                      {"marker", marker_bytes(header.marker)},
                      {"version", header.version},
                      {"bytes", package.size},
                      {"sha256", sha256_of(package, 0, package.size)}};
    for (unsigned i = 0; i < 3; ++i)
        json["images"].push_back({{"name", kImageNames[i]},
                                  {"bytes", header.size[i]},
                                  {"sha256", sha256_of(package, header.offset(i), header.size[i])}});
    return json;
}

std::string text_of(const cli::Json& json)
{
    return json.dump(2, ' ', false, cli::Json::error_handler_t::replace) + "\n";
}

// Not a manifest: no "format", or that of another program.
cli::Json parsed(int fd, int64_t size)
{
    std::string text(size_t(std::min(size, kMostBytes)), '\0');
    text.resize(size_t(std::max<ssize_t>(0, pread(fd, text.data(), text.size(), 0))));
    cli::Json json = cli::Json::parse(text, nullptr, false);
    const bool ours = json.is_object() && json.contains("format") && json["format"] == kFormat;
    return ours ? json : cli::Json();
}

cli::Json read_manifest(const std::string& path)
{
    Input file;
    file.open(path);
    cli::Json json = parsed(file.fd.get(), file.size);
    if (json.is_null()) fail(path, "is no manifest of fwpkg build");
    return json;
}

std::string difference(const std::string& where, const cli::Json& found, const cli::Json& expected)
{
    for (const auto& [name, value] : found.items()) {
        if (name == "images") continue;
        const bool told = expected.is_object() && expected.contains(name);
        if (!told) return where + name + ": found " + value.dump() + ", the manifest does not say it";
        if (expected[name] != value)
            return where + name + ": found " + value.dump() + ", the manifest says " + expected[name].dump();
    }
    return "";
}

} // namespace

std::string manifest_of(const Input& package, const zep::PackageHeader& header)
{
    return text_of(json_of(package, header));
}

bool is_manifest(int fd, off_t size) { return !parsed(fd, size).is_null(); }

void require_manifest(const std::string& path) { read_manifest(path); }

std::string compare_with_manifest(const std::string& path, const Input& package,
                                  const zep::PackageHeader& header)
{
    const cli::Json expected = read_manifest(path);
    // The package in the manifest's own spelling, so that a marker that is no UTF-8 compares too.
    const cli::Json found = cli::Json::parse(text_of(json_of(package, header)));
    const cli::Json images = expected.contains("images") ? expected["images"] : cli::Json();
    const auto told = [&](size_t i) {
        return images.is_array() && i < images.size() ? images[i] : cli::Json();
    };
    // The images first: they say more than the sum of all.
    for (size_t i = 0; i < found["images"].size(); ++i)
        if (auto text = difference(std::string(kImageNames[i]) + " ", found["images"][i], told(i));
            !text.empty())
            return text;
    return difference("package ", found, expected);
}

} // namespace fwpkg
