// Names of unfinished files, which no end of the process leaves behind.
#include "tools/cli/unfinished.hpp"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace cli {
namespace {

constexpr int kEnds[] = {SIGINT, SIGTERM, SIGHUP};
constexpr size_t kMost = 4; // outputs of one command

// Read by the handler of a signal, so of fixed size; written while those signals are held.
struct Names {
    std::array<std::array<char, PATH_MAX>, kMost> names; // empty: free
};
constinit Names state = {};

void remove_all_and_end(int number)
{
    for (auto& name : state.names)
        if (name[0]) unlink(name.data());
    signal(number, SIG_DFL);
    raise(number);
}

sigset_t ends()
{
    sigset_t set;
    sigemptyset(&set);
    for (int number : kEnds) sigaddset(&set, number);
    return set;
}

// What is ignored stays ignored, as under nohup; a handler of the program's own stays too.
void catch_ends()
{
    for (int number : kEnds) {
        struct sigaction now = {};
        if (sigaction(number, nullptr, &now) < 0 || now.sa_handler != SIG_DFL) continue;
        now.sa_handler = remove_all_and_end;
        sigaction(number, &now, nullptr);
    }
}

bool note(const std::string& name)
{
    for (auto& slot : state.names) {
        if (slot[0] || name.size() >= slot.size()) continue;
        memcpy(slot.data(), name.c_str(), name.size() + 1);
        return true;
    }
    return false;
}

} // namespace

HeldSignals::HeldSignals()
{
    const sigset_t set = ends();
    sigprocmask(SIG_BLOCK, &set, &before_);
}

HeldSignals::~HeldSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

std::string unfinished_name(const std::string& folder)
{
    static std::random_device random;
    char word[16];
    snprintf(word, sizeof word, "%08x", unsigned(random()));
    return folder + "/.unfinished." + word;
}

int named_unfinished(const std::string& folder, std::string& name)
{
    const HeldSignals until_noted;
    catch_ends();
    for (int i = 0; i < kNamesTried; ++i) {
        const std::string wanted = unfinished_name(folder);
        const int fd = open(wanted.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0) return -1;
        if (!note(wanted)) {
            close(fd);
            unlink(wanted.c_str());
            errno = EMFILE;
            return -1;
        }
        name = wanted;
        return fd;
    }
    return -1;
}

void remove_unfinished(const std::string& name)
{
    unlink(name.c_str());
    forget_unfinished(name);
}

void forget_unfinished(const std::string& name)
{
    const HeldSignals meanwhile;
    for (auto& slot : state.names)
        if (name == slot.data()) slot[0] = '\0';
}

} // namespace cli
