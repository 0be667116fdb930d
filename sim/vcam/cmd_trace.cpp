// vcam trace: the record of the last run for trace viewers.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/view/trace.hpp"
#include "tools/cli/output_file.hpp"

#include <unistd.h>

namespace vcam {
namespace {

constexpr size_t kTraceHead = 16;

// One of ours.
bool is_trace(int fd, off_t)
{
    char head[kTraceHead] = "";
    return pread(fd, head, sizeof head - 1, 0) > 0 && std::string(head).rfind("{\"traceEvents\"", 0) == 0;
}

} // namespace

int trace_main(const Arguments& arguments)
{
    std::string name = "/dev/stdout";
    bool force = false;
    const auto words = cli::parse(
        arguments, {{{"-o,--output", "FILE", "where to write it (standard output)",
                      [&](auto& v) { name = cli::given(v); }},
                     {"--force", nullptr, "replace a file that is no trace", [&](auto&) { force = true; }}},
                    {kCamera}});
    const Camera camera(words.plain[0]);
    camera.keep_out(name);
    cli::OutputFile output(name, {"a trace", is_trace, force});
    output.write(trace_json(camera).dump(-1, ' ', false, cli::Json::error_handler_t::replace) + "\n");
    output.commit();
    return 0;
}

} // namespace vcam
