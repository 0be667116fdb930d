// vcam report: the page of one camera, frozen in one file.
#include "sim/base/camera.hpp"
#include "sim/base/text.hpp"
#include "sim/models/table.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/view/snapshot.hpp"
#include "sim/view/status_lines.hpp"
#include "sim/web/page.hpp"
#include "tools/cli/output_file.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr int kPageWidth = 1400, kPageHeight = 1900, kMostPageHeight = 16000; // of a picture
constexpr std::string_view kHeightIs = "data-height=\"";
constexpr std::string_view kOurs = "<!DOCTYPE html><!-- a virtual camera -->", kPng = "\x89PNG";
constexpr const char* kBrowsers[] = {"/usr/bin/chromium", "/usr/bin/chromium-browser",
                                     "/usr/bin/google-chrome"};

bool is_report(int fd, off_t) { return cli::begins_with(fd, kOurs); }
bool is_png(int fd, off_t) { return cli::begins_with(fd, kPng); }

std::string dump(const cli::Json& json)
{
    return json.dump(-1, ' ', false, cli::Json::error_handler_t::replace);
}

std::string report_of(const std::string& folder)
{
    Snapshot snapshot(folder);
    cli::Json event = {{"camera", 0}};
    event.update(snapshot.next(true));
    const cli::Json known = {{"cameras", {snapshot.camera().folder()}},
                             {"targets", cli::Json::array()},
                             {"lines", line_names_json()}};
    return web::frozen_page(dump(event), dump(known));
}

const char* browser()
{
    for (const char* program : kBrowsers)
        if (access(program, X_OK) == 0) return program;
    fail("report: --png needs a browser: install the Debian package chromium");
}

// Runs the browser on folder/report.html, for `what` it is to make; its standard output goes to folder/out. Returns its
// status. Its own files go into the folder too, and with it.
int browse(const std::string& folder, const std::string& what, int height)
{
    const char* program = browser();
    const std::string home = "--user-data-dir=" + folder + "/profile", out = folder + "/out",
                      window = text("--window-size=%d,%d", kPageWidth, height),
                      address = "file://" + folder + "/report.html";
    const pid_t child = fork();
    if (child == 0) {
        freopen(out.c_str(), "w", stdout);
        freopen("/dev/null", "w", stderr);
        execl(program, program, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
              "--no-first-run", "--virtual-time-budget=3000", window.c_str(), home.c_str(), what.c_str(),
              address.c_str(), nullptr);
        _exit(127);
    }
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// The whole page: its height is known when it has been laid out, and is then an attribute of its first element.
std::string picture(const std::string& page)
{
    const ScratchFolder folder;
    write_file(folder.path() + "/report.html", page);
    browse(folder.path(), "--dump-dom", kPageHeight);
    const std::string laid_out = try_read_file(folder.path() + "/out").value_or("");
    const size_t at = laid_out.find(kHeightIs);
    const int height = at == std::string::npos ? 0 : atoi(laid_out.c_str() + at + kHeightIs.size());
    const std::string png = folder.path() + "/report.png";
    const int status = browse(folder.path(), "--screenshot=" + png,
                              height > 0 && height < kMostPageHeight ? height : kPageHeight);
    const auto bytes = try_read_file(png);
    if (!bytes) fail("report: %s made no picture (status %d)", browser(), status);
    return *bytes;
}

void put_out(const std::string& name, const cli::OutputRule& rule, const std::string& content)
{
    cli::OutputFile output(name, rule);
    output.write(content);
    output.commit();
}

} // namespace

int report_main(const Arguments& arguments)
{
    std::string name, png;
    bool force = false;
    const auto words = cli::parse(
        arguments,
        {{{"-o,--output", "FILE.html", "where to write the page", [&](auto& v) { name = cli::given(v); }},
          {"--png", "FILE.png", "a picture of it, through chromium", [&](auto& v) { png = cli::given(v); }},
          {"--force", nullptr, "replace files that are neither", [&](auto&) { force = true; }}},
         {kCamera}});
    if (name.empty() && png.empty()) wrong_use("name a file with -o or --png");
    if (!png.empty()) browser(); // missing: said before anything is written
    for (const auto& file : {name, png}) Camera(words.plain[0]).keep_out(file);
    const std::string page = report_of(words.plain[0]);
    if (!name.empty()) put_out(name, {"a report", is_report, force}, page);
    if (!png.empty()) put_out(png, {"a PNG file", is_png, force}, picture(page));
    return 0;
}

} // namespace vcam
