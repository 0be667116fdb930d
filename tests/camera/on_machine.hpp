// Transcripts on the emulated machine: the same cameras, commands and expectations, in one boot for many cases. What
// cameras.sh of tests/machine runs is laid into a folder here, and what it has sent back is compared.
#pragma once

#include "tests/support/transcript.hpp"

namespace on_machine {

// Both return 0 or say on standard output what is wrong.
int prepare(const std::vector<Transcript>& cases, const fs::path& folder);
// Names how many cases passed and which were left out, with the reason.
int judge(const std::vector<Transcript>& cases, const fs::path& folder, const fs::path& out);

} // namespace on_machine
