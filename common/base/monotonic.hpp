// A clock that only goes forward, whatever is set meanwhile.
#pragma once

#include <cstdint>

namespace zep {

int64_t monotonic_ms();

} // namespace zep
