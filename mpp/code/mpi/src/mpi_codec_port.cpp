// What encoder and decoder channels share.
#include "mpi/src/mpi_codec_port.hpp"

#include "base/mpp_report.hpp"

namespace zep {

int32_t CodecPort::check_channel(const char* function, int line, int32_t channel) const
{
    if (uint32_t(channel) < channels) return 0;
    mpp_log(function, line, "%s chnid %d is invalid\n", name, channel);
    return error(MPP_ERR_CHANNEL);
}

int32_t CodecPort::check_block(const char* function, int line, uint32_t block) const
{
    if (block <= 1) return 0;
    mpp_log(function, line, "illegal param: bBlock(%d)!\n", int(block));
    return error(MPP_ERR_PARAM);
}

int32_t CodecPort::check_buffer(const char* function, int line, uint32_t size) const
{
    if (size >= min_buffer && size <= max_buffer) return 0;
    mpp_log(function, line, "u32BufSize:%u is invalid\n", size);
    return error(MPP_ERR_PARAM);
}

int32_t CodecPort::refuse_payload(const char* function, int line, int32_t type) const
{
    mpp_log(function, line, "payload type:%d is invalid\n", type);
    return error(MPP_ERR_PARAM);
}

int32_t CodecPort::descriptor_or_code() { return driver.open() == 0 ? driver.fd() : error(MPP_ERR_REFUSED); }

} // namespace zep
