// The commands of vcam.
#pragma once

#include <string>
#include <vector>

namespace vcam {

using Arguments = std::vector<std::string>;

struct Command {
    const char* name;
    const char* usage; // what follows "vcam NAME"
    const char* help;  // one line
    int (*main)(const Arguments& arguments);
};

extern const Command kCommands[]; // ends with a null name

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
int help_main(const Arguments& arguments);

// Wrong use of the command line: exit status 2, and where help is to be had.
constexpr int kUsageStatus = 2;

} // namespace vcam
