// The camera's other programs on the emulated machine, chosen by the name it is started under.
//
//   fuser -m FOLDER   numbers of the processes that use the file system of FOLDER, in one line
//   anything else     a daemon: sleeps until a signal ends it. Its words may be ignore-term, and the
//                     names of files to keep open.
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

bool is_on(const fs::path& path, dev_t device)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && st.st_dev == device;
}

bool uses(const fs::path& process, dev_t device)
{
    for (const char* name : {"cwd", "root", "exe"})
        if (is_on(process / name, device)) return true;
    std::error_code gone;
    for (const auto& open_file : fs::directory_iterator(process / "fd", gone))
        if (is_on(open_file.path(), device)) return true;
    return false;
}

int fuser(const char* folder)
{
    struct stat st;
    if (stat(folder, &st) != 0) return 1;
    std::string line;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (isdigit(static_cast<unsigned char>(name[0])) && uses(entry.path(), st.st_dev)) line += name + ' ';
    }
    if (line.empty()) return 1;
    puts(line.c_str());
    return 0;
}

int daemon_main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "ignore-term") == 0)
            signal(SIGTERM, SIG_IGN);
        else if (open(argv[i], O_RDONLY) < 0)
            return perror(argv[i]), 1;
    }
    for (;;) pause();
}

} // namespace

int main(int argc, char** argv)
{
    const char* slash = strrchr(argv[0], '/');
    const bool lists = strcmp(slash ? slash + 1 : argv[0], "fuser") == 0;
    if (!lists) return daemon_main(argc, argv);
    if (argc == 3 && strcmp(argv[1], "-m") == 0) return fuser(argv[2]);
    fputs("usage: fuser -m FOLDER\n", stderr);
    return 2;
}
