// Names of unfinished files, which no end of the process leaves behind.
#pragma once

#include <csignal>
#include <string>

namespace cli {

constexpr int kNamesTried = 100;

// A name below the folder that nobody else has thought of; it may still be taken.
std::string unfinished_name(const std::string& folder);

// A new file for reading and writing and its name; SIGINT, SIGTERM and SIGHUP remove it. -1 with errno; EMFILE
// beyond four at a time.
int named_unfinished(const std::string& folder, std::string& name);
void remove_unfinished(const std::string& name);
// The file has its final name now.
void forget_unfinished(const std::string& name);

// The signals that end a process from outside wait for as long as this lives.
class HeldSignals {
public:
    HeldSignals();
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    sigset_t before_;
};

} // namespace cli
