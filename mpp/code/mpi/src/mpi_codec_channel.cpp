// What encoder and decoder channels share.
#include "mpi/src/mpi_codec_channel.hpp"

namespace zep {

int32_t CodecModule::check_channel(const char* function, int line, int32_t channel) const
{
    if (uint32_t(channel) < kCodecChannels) return 0;
    mpp_log(function, line, "%s chnid %d is invalid\n", name, channel);
    return coded(MPP_ERR_CHANNEL);
}

int32_t CodecModule::check_block(const char* function, int line, uint32_t block) const
{
    if (block <= 1) return 0;
    mpp_log(function, line, "illegal param: bBlock(%d)!\n", int(block));
    return coded(MPP_ERR_PARAM);
}

int32_t CodecModule::check_buffer(const char* function, int line, uint32_t size) const
{
    if (size >= min_buffer && size <= max_buffer) return 0;
    mpp_log(function, line, "u32BufSize:%u is invalid\n", size);
    return coded(MPP_ERR_PARAM);
}

int32_t CodecModule::refuse_payload(const char* function, int line, int32_t type) const
{
    mpp_log(function, line, "payload type:%d is invalid\n", type);
    return coded(MPP_ERR_PARAM);
}

int32_t CodecModule::descriptor_or_code()
{
    return driver.open() == 0 ? driver.fd() : coded(MPP_ERR_REFUSED);
}

} // namespace zep
