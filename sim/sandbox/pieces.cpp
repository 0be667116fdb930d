// Where the programs stand that a camera is put together from.
#include "sim/sandbox/pieces.hpp"
#include "sim/base/text.hpp"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vector>

namespace vcam {
namespace {

struct Piece {
    std::string Pieces::*field;
    const char* variable;
    const char* what;
    std::vector<const char*> places; // relative ones start at this program's folder
};

// Build tree (bin/vcam beside app/ and sim/) first, then the installed one (bin/vcam), whose parts are out of
// the way of users.
const Piece kPieces[] = {
    {&Pieces::zep, "VCAM_ZEP", "the zep executable", {"../app/zep", "zep", VCAM_PARTS "/zep"}},
    {&Pieces::guest, "VCAM_GUEST", "vcam-guest", {"vcam-guest", VCAM_PARTS "/vcam-guest"}},
    {&Pieces::preload,
     "VCAM_PRELOAD",
     "the folder of libvcamsim.so",
     {"../sim/preload", VCAM_PARTS "/preload"}},
    {&Pieces::busybox,
     "VCAM_BUSYBOX",
     "a static busybox (Debian package busybox-static)",
     {"/usr/bin/busybox", "/bin/busybox", "/usr/local/bin/busybox"}},
};

std::string own_folder() { return std::filesystem::path(own_program()).parent_path().string(); }

std::string find(const Piece& piece, const std::string& beside)
{
    if (const char* given = getenv(piece.variable)) {
        if (access(given, R_OK) == 0) return std::filesystem::canonical(given).string();
        fail("%s=%s: no such file; it should be %s", piece.variable, given, piece.what);
    }
    for (const char* place : piece.places) {
        std::filesystem::path path = place[0] == '/' ? place : beside + "/" + place;
        std::error_code error;
        auto real = std::filesystem::canonical(path, error);
        if (!error) return real.string();
    }
    fail("%s is not there; build or install it, or set %s to its path", piece.what, piece.variable);
}

// A program with an interpreter needs host libraries at fixed places and sees LD_PRELOAD: neither
// suits the tools that work on plain files. The interpreter is named in the first page.
bool names_interpreter(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string head(4096, '\0');
    file.read(head.data(), std::streamsize(head.size()));
    return head.find("/ld-linux") != std::string::npos;
}

} // namespace

std::string own_program()
{
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self);
    if (n <= 0 || size_t(n) >= sizeof self) return "./vcam";
    return std::string(self, size_t(n));
}

std::string find_web_server()
{
    return find({nullptr, "VCAM_WEB", "vcam-web, the page's server", {"vcam-web", VCAM_PARTS "/vcam-web"}},
                own_folder());
}

Pieces find_pieces()
{
    Pieces out;
    const std::string beside = own_folder();
    for (const auto& piece : kPieces) out.*piece.field = find(piece, beside);
    if (names_interpreter(out.busybox))
        fail("%s is not statically linked; install the Debian package busybox-static", out.busybox.c_str());
    return out;
}

} // namespace vcam
