// Local messages: a length that passes the check lies within what arrived.
#include "common/cicomm.h"
#include "fuzz/fuzz_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    int32_t length = CICOMM_CheckMessage(data, int32_t(size));
    must(length == -1 || (length >= 0 && size_t(length) + CICOMM_HEADER_SIZE <= size));
    return 0;
}
