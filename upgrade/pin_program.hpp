// Keeps the running program readable while its file system is rewritten.
#pragma once

namespace zep {

// Brings in and locks the pages of the executable and its libraries. Those come from the root file
// system, and after that has been overwritten a page read late would be other code. Stacks and
// heap need no lock, they have no file behind them. Where locking is not permitted the pages
// stay as they are.
void pin_program();

} // namespace zep
