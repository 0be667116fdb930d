// /bin/sh of a camera on the emulated machine: what the camera's executable gives to the shell goes into the journal,
// as in the sandbox, and then to the real shell.
#include "sim/base/caller.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"
#include "sim/clock/journal.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

constexpr char kShell[] = "/bin/dash", kState[] = "/run/vcam", kExecutable[] = "/zep";

bool is_camera_program(pid_t process)
{
    std::array<char, 256> path = {};
    const ssize_t n =
        readlink(("/proc/" + std::to_string(process) + "/exe").c_str(), path.data(), path.size() - 1);
    return n > 0 && std::string_view(path.data(), size_t(n)).ends_with(kExecutable);
}

} // namespace

int main(int argc, char** argv)
{
    using namespace vcam;
    if (argc == 3 && strcmp(argv[1], "-c") == 0 && is_camera_program(getppid())) {
        state::set_dir(kState);
        const caller::Answering answering(getppid());
        journal::add("system", argv[2]);
    }
    execv(kShell, argv);
    perror(kShell);
    return 127;
}
