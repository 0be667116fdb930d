// vcam-web: what `vcam web` starts. Its words are not for people.
#include "sim/base/text.hpp"
#include "sim/web/hub.hpp"
#include "sim/web/server.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

// vcam-web VCAM HOST PORT PACE OPEN FOLDER...
int main(int argc, char** argv)
try {
    if (argc == 3 && strcmp(argv[1], "--sample") == 0) return vcam::web::sample_main(argv[2]);
    if (argc < 7) vcam::fail("start it with: vcam web");
    vcam::web::ServerOptions options;
    options.self = std::filesystem::read_symlink("/proc/self/exe").string();
    options.vcam = argv[1];
    options.host = argv[2];
    options.port = atoi(argv[3]);
    options.pace = atof(argv[4]);
    options.open = strcmp(argv[5], "open") == 0;
    options.folders.assign(argv + 6, argv + argc);
    return vcam::web::serve(options);
} catch (const std::exception& e) {
    fprintf(stderr, "vcam: %s\n", e.what());
    return 1;
}
