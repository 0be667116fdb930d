// The program's own allocations, where the fault plan names them.
#pragma once

namespace vcam::allocations {

// Lets the program's calls of malloc and the like come through the fault plan if it names one of them. Calls that the C
// library and other libraries make are not seen.
void replace();

} // namespace vcam::allocations
