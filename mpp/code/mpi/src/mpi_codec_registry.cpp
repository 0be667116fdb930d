// Registries of encoders and decoders.
#include "mpi/src/mpi_codec_registry.h"

#include "base/mpp_error.h"
#include "base/mpp_report.hpp"
#include "mpi/audio/audio_voice_adp.h"
#include "base/mpp_lock.hpp"

namespace {

constexpr int32_t kFree = -1;

template<class Descriptor, MOD_ID kModule> class Registry {
public:
    int32_t add(int32_t* handle, const Descriptor& descriptor)
    {
        zep::MutexLock guard(lock_);
        prepare();
        if (count_ >= CODEC_REGISTRY_SIZE) return MPP_ERROR(kModule, MPP_ERR_FULL);
        // A type of -1 would leave the entry free while it counts.
        if (descriptor.enType == kFree) return MPP_ERROR(kModule, MPP_ERR_PARAM);
        int32_t free = -1;
        for (int32_t i = CODEC_REGISTRY_SIZE - 1; i >= 0; --i) {
            if (entries_[i].enType == descriptor.enType) return MPP_ERROR(kModule, MPP_ERR_FULL);
            if (entries_[i].enType == kFree) free = i;
        }
        entries_[free] = descriptor;
        *handle = free;
        ++count_;
        return 0;
    }

    int32_t find(int32_t type, Descriptor* descriptor)
    {
        zep::MutexLock guard(lock_);
        prepare();
        for (const Descriptor& entry : entries_)
            if (type != kFree && entry.enType == type) {
                *descriptor = entry;
                return 0;
            }
        return MPP_ERROR(kModule, MPP_ERR_PARAM);
    }

    int32_t get(int32_t handle, Descriptor* descriptor)
    {
        zep::MutexLock guard(lock_);
        prepare();
        if (handle < 0 || handle >= CODEC_REGISTRY_SIZE || entries_[handle].enType == kFree)
            return MPP_ERROR(kModule, MPP_ERR_PARAM);
        *descriptor = entries_[handle];
        return 0;
    }

    void clear()
    {
        zep::MutexLock guard(lock_);
        clear_entries();
    }

private:
    // Entries are marked free at the first use: until then all is zeros and takes no room in the file.
    void prepare()
    {
        if (!prepared_) clear_entries();
        prepared_ = true;
    }

    void clear_entries()
    {
        for (Descriptor& entry : entries_) {
            entry = Descriptor{};
            entry.enType = kFree;
        }
        count_ = 0;
    }

    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
    Descriptor entries_[CODEC_REGISTRY_SIZE]{}; // guarded by lock_
    int32_t count_ = 0;                         // guarded by lock_
    bool prepared_ = false;                     // guarded by lock_
};

struct CodecState {
    Registry<AENC_ENCODER_S, HI_ID_AENC> encoders;
    Registry<ADEC_DECODER_S, HI_ID_ADEC> decoders;
};
constinit CodecState state;

bool complete(const AENC_ENCODER_S* e)
{
    return e && e->pfnOpenEncoder && e->pfnEncodeFrm && e->pfnCloseEncoder;
}

bool complete(const ADEC_DECODER_S* d)
{
    return d && d->pfnOpenDecoder && d->pfnDecodeFrm && d->pfnGetFrmInfo && d->pfnCloseDecoder;
}

} // namespace

int32_t HI_MPI_AENC_RegeisterEncoder(int32_t* ps32Handle, const AENC_ENCODER_S* pstEncoder)
{
    if (!ps32Handle || !complete(pstEncoder)) {
        const int32_t error = MPP_ERROR(HI_ID_AENC, MPP_ERR_NULL);
        MPP_LOG("Audio some err:0x%x, line %d\n", unsigned(error), __LINE__);
        return error;
    }
    return state.encoders.add(ps32Handle, *pstEncoder);
}

int32_t HI_MPI_ADEC_RegeisterDecoder(int32_t* ps32Handle, const ADEC_DECODER_S* pstDecoder)
{
    if (!ps32Handle || !complete(pstDecoder)) {
        const int32_t error = MPP_ERROR(HI_ID_ADEC, MPP_ERR_NULL);
        MPP_LOG("Audio some err:0x%x\n", unsigned(error));
        return error;
    }
    return state.decoders.add(ps32Handle, *pstDecoder);
}

int32_t MPI_AENC_RegisterBuiltIn(void) { return AUDIO_ADP_RegisterEncoders(HI_MPI_AENC_RegeisterEncoder); }
int32_t MPI_ADEC_RegisterBuiltIn(void) { return AUDIO_ADP_RegisterDecoders(HI_MPI_ADEC_RegeisterDecoder); }
void MPI_AENC_ClearRegistry(void) { state.encoders.clear(); }
void MPI_ADEC_ClearRegistry(void) { state.decoders.clear(); }

int32_t MPI_AENC_FindEncoder(int32_t enType, AENC_ENCODER_S* pstEncoder)
{
    return state.encoders.find(enType, pstEncoder);
}
int32_t MPI_ADEC_FindDecoder(int32_t enType, ADEC_DECODER_S* pstDecoder)
{
    return state.decoders.find(enType, pstDecoder);
}
int32_t MPI_AENC_GetEncoder(int32_t s32Handle, AENC_ENCODER_S* pstEncoder)
{
    return state.encoders.get(s32Handle, pstEncoder);
}
int32_t MPI_ADEC_GetDecoder(int32_t s32Handle, ADEC_DECODER_S* pstDecoder)
{
    return state.decoders.get(s32Handle, pstDecoder);
}
