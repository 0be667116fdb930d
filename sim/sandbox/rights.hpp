// The rights of the camera's processes: what no process in the camera can regain.
#pragma once

namespace vcam {

// For a process that stands in the camera's namespaces, before it starts a program: drops the capabilities
// that could reach the machine, leaves the caller's keyring, and filters the requests that type into its
// terminal. Programs started later inherit all three. Throws.
void give_up_rights();

} // namespace vcam
