// Lines of the camera's journal.
#include "sim/clock/journal.hpp"
#include "sim/clock/clock.hpp"
#include "sim/base/caller.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cerrno>
#include <cstdio>
#include <string>

namespace vcam::journal {

void add_to(const char* file, std::string_view source, std::string_view text)
{
    if (state::dir().empty()) return;
    const int e = errno;
    const int64_t us = clock::now_ns() / 1000;
    char head[64];
    snprintf(head, sizeof head, "%lld.%06d %d ", (long long)(us / 1'000'000), int(us % 1'000'000),
             caller::pid());
    std::string line = head;
    line.append(source).append(" ");
    for (char c : text) c == '\n' ? line.append("\\n") : line.append(1, c);
    raw::append(state::path(file), line.append("\n"));
    errno = e;
}

void add(std::string_view source, std::string_view text) { add_to("journal", source, text); }

} // namespace vcam::journal
