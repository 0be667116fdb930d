/**
 * Channel binder: hands data from a sender's channel to the receivers bound to it, in this process.
 *
 * The audio decoder decodes in user space, so its frames reach audio output through this table and not
 * through the system driver. Modules register once as a sender, a receiver or both; binding connects one
 * sender channel to any number of receiver channels, and one receiver channel to at most one sender.
 *
 * A channel's place in a registration's table is device * u32MaxDevCnt + channel. With 3 devices of 16
 * channels, device 1 channel 0 and device 0 channel 3 therefore share a place: one of them bound means
 * both are. The stride is part of the table's definition.
 *
 * One lock guards binding, unbinding and registration. SYS_BIND_SendData walks the lists without it: a
 * channel may be bound while it sends, but not unbound, nor its modules registered or unregistered. Messages
 * go to standard error.
 */
#ifndef MKP_BIND_SYS_BIND_H
#define MKP_BIND_SYS_BIND_H

#include <stdint.h>

#include "base/mpp_error.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a binding carries; valid 0 to MPP_DATA_BUTT - 1. */
typedef enum {
    MPP_DATA_AUDIO_FRAME = 2, /* an AUDIO_FRAME_S */
    MPP_DATA_BUTT = 3
} MPP_DATA_TYPE;

/**
 * Receives one item during SYS_BIND_SendData.
 * @return 0 when the item was taken. Another result does not end the walk; SYS_BIND_SendDataCounted does not
 *         count the receiver then.
 */
typedef int32_t (*SYS_BIND_RECEIVE_FN)(int32_t s32DevId, int32_t s32ChnId, int32_t enDataType, void* pData);

typedef struct {
    int32_t enModId; /* MOD_ID */
    uint32_t u32MaxDevCnt;
    uint32_t u32MaxChnCnt;
} SYS_BIND_SENDER_S;

typedef struct {
    int32_t enModId; /* MOD_ID */
    uint32_t u32MaxDevCnt;
    uint32_t u32MaxChnCnt;
    SYS_BIND_RECEIVE_FN pfnReceive;
} SYS_BIND_RECEIVER_S;

/** Make the binder ready. @return 0, also when it was */
int32_t SYS_BIND_Init(void);
/** Drop all registrations and bindings. @return 0, also when there are none */
int32_t SYS_BIND_DeInit(void);

/**
 * Register a module as a sender.
 *
 * @return 0, or a code of HI_ID_SYS: MPP_ERR_NULL for a null record; MPP_ERR_PARAM for a module
 *         above 40, or counts whose product is 0 or does not fit 32 bits; MPP_ERR_NOT_PERM when the module is
 *         registered; MPP_ERR_NO_MEMORY
 */
int32_t SYS_BIND_RegisterSender(const SYS_BIND_SENDER_S* pstSender);
/**
 * Register a module as a receiver. Connections to an earlier registration of it are dropped.
 * @return as SYS_BIND_RegisterSender; MPP_ERR_NULL also for a null callback
 */
int32_t SYS_BIND_RegisterReceiver(const SYS_BIND_RECEIVER_S* pstReceiver);

/**
 * Take a sender's registration back; its bindings go with it.
 * @return 0; MPP_ERR_PARAM for a module above 40; MPP_ERR_NOT_PERM when the module is not registered
 */
int32_t SYS_BIND_UnRegisterSender(int32_t enModId);
/**
 * Take a receiver's registration back. Its bindings stay until the module registers again; until then data
 * sent to them is refused.
 * @return as SYS_BIND_UnRegisterSender
 */
int32_t SYS_BIND_UnRegisterReceiver(int32_t enModId);

/**
 * Hand data to every receiver bound to a sender's channel, in the order of binding; nothing is allocated. A
 * module above 40 or a type outside 0 to 2 is a failed assertion and ends the process.
 *
 * @param s32DevId  counts only for modules with several devices (15, 21, 22)
 * @param pData     stays the caller's; receivers use it during the call only
 * @return 0, also when nothing is bound and when a receiver refused the data; MPP_ERR_NULL for null data;
 *         MPP_ERR_NOT_PERM when the sender or a receiver on the list is not registered, the walk ends there;
 *         MPP_ERR_PARAM for a device or channel outside the registration
 */
int32_t SYS_BIND_SendData(int32_t enModId, int32_t s32DevId, int32_t s32ChnId, int32_t enDataType,
                          void* pData);

/**
 * The same, and how many receivers took the data.
 *
 * @param pu32Taken  receives the number of receivers whose callback returned 0; 0 when nothing is bound. Of a
 *                   walk that ends early: those before its end.
 * @return as SYS_BIND_SendData; MPP_ERR_NULL also for a null pu32Taken, nothing is sent then
 */
int32_t SYS_BIND_SendDataCounted(int32_t enModId, int32_t s32DevId, int32_t s32ChnId, int32_t enDataType,
                                 void* pData, uint32_t* pu32Taken);

/**
 * Connect a sender's channel to a receiver's. The system module calls this with normalised device ids.
 * @return 0; MPP_ERR_PARAM for an unknown or out-of-range channel, or out of memory; MPP_ERR_NOT_PERM when
 *         the destination is bound already
 */
int32_t SYS_Bind(const MPP_CHN_S* pstSrc, const MPP_CHN_S* pstDest);

/**
 * Disconnect a receiver's channel from the source that was recorded for it.
 * @return 0, also when it is not bound; MPP_ERR_PARAM for an unknown or out-of-range channel
 */
int32_t SYS_UnBind(const MPP_CHN_S* pstDest);

/**
 * Look up the source of a receiver's channel.
 * @param pstSrc  receives the source
 * @return 0; MPP_ERR_PARAM for an unknown or out-of-range channel, and for one that is not bound
 */
int32_t SYS_GetBindByDest(const MPP_CHN_S* pstDest, MPP_CHN_S* pstSrc);

#ifdef __cplusplus
}
#endif
#endif
