// The commands of vcam.
#pragma once

#include "tools/cli/command_line.hpp"

namespace vcam {

using cli::Arguments;

int new_main(const Arguments& arguments);
int run_main(const Arguments& arguments);
int shell_main(const Arguments& arguments);
int exec_main(const Arguments& arguments);
int status_main(const Arguments& arguments);
int put_main(const Arguments& arguments);
int get_main(const Arguments& arguments);
int journal_main(const Arguments& arguments);
int log_main(const Arguments& arguments);
int diff_main(const Arguments& arguments);
int fault_main(const Arguments& arguments);
int pin_main(const Arguments& arguments);
int rtc_main(const Arguments& arguments);
int plug_main(const Arguments& arguments);
int trace_main(const Arguments& arguments);
int report_main(const Arguments& arguments);
int watch_main(const Arguments& arguments);
int explore_main(const Arguments& arguments);
int web_main(const Arguments& arguments);

} // namespace vcam
