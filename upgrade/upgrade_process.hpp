// Keeps an upgrading process alive, alone and readable from its start to the reboot.
#pragma once

namespace zep {

// Before the first step of an upgrade: ignores hang-ups, opens /dev/null in place of a closed output, leaves a
// working folder below /etc, and waits until no other process upgrades. Returns the package's path, made absolute
// when the working folder was left.
const char* prepare_process(const char* package);

// Whether a partition of its own is mounted on /etc.
bool settings_mounted();

// The descriptor stands on the partition that is mounted on /etc.
bool on_settings_partition(int fd);

// Brings in and locks the pages of the executable and its libraries. Those come from the root file
// system, and after that has been overwritten a page read late would be other code. Stacks and
// heap need no lock, they have no file behind them. Where locking is not permitted the pages
// stay as they are.
void lock_program_in_memory();

} // namespace zep
