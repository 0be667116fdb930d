// Channel binder: registrations by module, bindings by channel.
#include "mkp/bind/sys_bind.h"

#include "base/mpp_lock.hpp"
#include "base/mpp_report.hpp"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

using zep::MutexLock;

constexpr char kSource[] = "mpp/code/mkp/bind/sys_bind";

// One connection on the circular list of its source; the list's head is a node without a destination. A list
// may grow while data walks it: the walk follows `next` only, which leads to a node once that is complete.
struct Node {
    std::atomic<Node*> next;
    Node* previous;
    MPP_CHN_S destination;
    std::atomic<uint32_t> sent;
};

struct Entry {
    bool bound;
    MPP_CHN_S source;
};

struct Counts {
    uint32_t devices = 0;
    uint32_t channels = 0;

    [[nodiscard]] bool contains(int32_t device, int32_t channel) const
    {
        return uint32_t(device) < devices && uint32_t(channel) < channels;
    }
    // The stride is the device count, not the channel count: what is bound through a shared place depends on
    // it.
    [[nodiscard]] size_t place(int32_t device, int32_t channel) const
    {
        return size_t(device) * devices + size_t(channel);
    }
    // Places that contains() can reach may lie beyond the product where devices outnumber channels.
    [[nodiscard]] uint64_t places() const
    {
        return std::max(uint64_t(devices) * channels, uint64_t(devices - 1) * devices + channels);
    }
    [[nodiscard]] bool valid() const
    {
        uint64_t product = uint64_t(devices) * channels;
        return product > 0 && product <= UINT32_MAX;
    }
};

// Zeroed table of a registration; null when memory is short, or would be.
template<class Place> Place* allocate_table(const Counts& counts)
{
    constexpr uint64_t most = 0x100000;
    return counts.places() > most ? nullptr
                                  : static_cast<Place*>(calloc(size_t(counts.places()), sizeof(Place)));
}

struct Sender {
    Counts counts;
    Node* heads = nullptr; // one a place; null: not registered
};

struct Receiver {
    Counts counts;
    Entry* entries = nullptr; // one a place; null: not registered
    SYS_BIND_RECEIVE_FN receive = nullptr;
};

struct State {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    Sender senders[HI_ID_BUTT];
    Receiver receivers[HI_ID_BUTT];
};
constinit State state;

constexpr zep::ModuleError coded{HI_ID_SYS};

bool valid_module(int32_t module) { return uint32_t(module) < HI_ID_BUTT; }

bool several_devices(int32_t module)
{
    return module == HI_ID_VIDEO_OUT || module == HI_ID_AI || module == HI_ID_AO;
}

const char* module_name(int32_t module)
{
    switch (module) {
    case HI_ID_VB:
        return "vb";
    case HI_ID_SYS:
        return "sys";
    case HI_ID_AI:
        return "ai";
    case HI_ID_AO:
        return "ao";
    case HI_ID_AENC:
        return "aenc";
    case HI_ID_ADEC:
        return "adec";
    default:
        return "other";
    }
}

bool same(const MPP_CHN_S& a, const MPP_CHN_S& b)
{
    return a.s32ModId == b.s32ModId && a.s32DevId == b.s32DevId && a.s32ChnId == b.s32ChnId;
}

// Whether the channel is within the registration; the reason on standard error.
bool check_channel(const MPP_CHN_S& channel, const Counts* table, bool registered)
{
    if (!valid_module(channel.s32ModId)) {
        fprintf(stderr, "ModId:%d is invalid !\n", channel.s32ModId);
        return false;
    }
    if (!registered) {
        fprintf(stderr, "ModId:%d(%s) is not supported !\n", channel.s32ModId, module_name(channel.s32ModId));
        return false;
    }
    if (table->contains(channel.s32DevId, channel.s32ChnId)) return true;
    fprintf(stderr, "Bind dev or chn is invalid, dev:%d, chn:%d !\n", channel.s32DevId, channel.s32ChnId);
    return false;
}

Sender* sender_of(const MPP_CHN_S& channel)
{
    Sender* sender = valid_module(channel.s32ModId) ? &state.senders[channel.s32ModId] : nullptr;
    return check_channel(channel, sender ? &sender->counts : nullptr, sender && sender->heads) ? sender
                                                                                               : nullptr;
}

Receiver* receiver_of(const MPP_CHN_S& channel)
{
    Receiver* receiver = valid_module(channel.s32ModId) ? &state.receivers[channel.s32ModId] : nullptr;
    bool ok = check_channel(channel, receiver ? &receiver->counts : nullptr, receiver && receiver->entries);
    return ok ? receiver : nullptr;
}

Entry& entry_of(Receiver& receiver, const MPP_CHN_S& channel)
{
    return receiver.entries[receiver.counts.place(channel.s32DevId, channel.s32ChnId)];
}

Node& head_of(Sender& sender, const MPP_CHN_S& channel)
{
    return sender.heads[sender.counts.place(channel.s32DevId, channel.s32ChnId)];
}

void append(Node& head, Node* node)
{
    node->previous = head.previous;
    node->next.store(&head, std::memory_order_relaxed);
    head.previous->next.store(node, std::memory_order_release);
    head.previous = node;
}

void unlink_and_free(Node* node)
{
    Node* next = node->next;
    node->previous->next = next;
    next->previous = node->previous;
    free(node);
}

Node* find_node(Node& head, const MPP_CHN_S& destination)
{
    for (Node* node = head.next; node != &head; node = node->next)
        if (same(node->destination, destination)) return node;
    return nullptr;
}

// Every connection of the table for which `gone` holds, with the destination's entry. Under the lock.
template<typename Gone> void drop_connections(Gone gone)
{
    for (int32_t module = 0; module < HI_ID_BUTT; ++module) {
        Sender& sender = state.senders[module];
        for (size_t place = 0; sender.heads && place < sender.counts.places(); ++place) {
            Node& head = sender.heads[place];
            for (Node *node = head.next, *next; node != &head; node = next) {
                next = node->next;
                if (!gone(module, node->destination)) continue;
                Receiver& receiver = state.receivers[node->destination.s32ModId];
                if (receiver.entries) entry_of(receiver, node->destination).bound = false;
                unlink_and_free(node);
            }
        }
    }
}

int32_t check_registration(int32_t module, const Counts& counts, bool taken)
{
    if (!valid_module(module)) return coded(MPP_ERR_PARAM);
    if (taken) {
        fprintf(stderr, "Mod %d have register !\n", module);
        return coded(MPP_ERR_NOT_PERM);
    }
    if (counts.valid()) return 0;
    fprintf(stderr, "u32MaxDevCnt or u32MaxChnCnt invalid !\n");
    return coded(MPP_ERR_PARAM);
}

int32_t null_point()
{
    fprintf(stderr, "Null point \n");
    return coded(MPP_ERR_NULL);
}

int32_t no_table_memory()
{
    fprintf(stderr, "No memory for bind table!\n");
    return coded(MPP_ERR_NO_MEMORY);
}

int32_t not_registered(int32_t module)
{
    fprintf(stderr, "Mod %d have not register !\n", module);
    return coded(MPP_ERR_NOT_PERM);
}

int32_t check_unregistration(int32_t module, bool registered)
{
    if (registered) return 0;
    fprintf(stderr, "Mod:%d have not register ! \n", module);
    return coded(MPP_ERR_NOT_PERM);
}

// Walks the receivers of `source`; `taken` counts those whose callback returned 0.
int32_t send_data(const char* function, MPP_CHN_S source, int32_t type, void* data, uint32_t& taken)
{
    // Negative values fail the published conditions too.
    zep::mpp_assert(valid_module(source.s32ModId), kSource, function, __LINE__, "enModId < HI_ID_BUTT");
    zep::mpp_assert(uint32_t(type) < MPP_DATA_BUTT, kSource, function, __LINE__,
                    "enDataType < MPP_DATA_BUTT");
    if (!data) return null_point();
    Sender& sender = state.senders[source.s32ModId];
    if (!sender.heads) return not_registered(source.s32ModId);
    if (!several_devices(source.s32ModId)) source.s32DevId = 0;
    if (!sender.counts.contains(source.s32DevId, source.s32ChnId)) return coded(MPP_ERR_PARAM);

    Node& head = head_of(sender, source);
    const auto after = [](const Node& node) { return node.next.load(std::memory_order_acquire); };
    for (Node* node = after(head); node != &head; node = after(*node)) {
        const MPP_CHN_S& to = node->destination;
        const Receiver& receiver = state.receivers[to.s32ModId];
        if (!receiver.receive) return not_registered(to.s32ModId);
        if (receiver.receive(to.s32DevId, to.s32ChnId, type, data) == 0) ++taken;
        node->sent.fetch_add(1, std::memory_order_relaxed);
    }
    return 0;
}

} // namespace

int32_t SYS_BIND_Init(void) { return 0; }

int32_t SYS_BIND_DeInit(void)
{
    MutexLock locked(state.lock);
    drop_connections([](int32_t, const MPP_CHN_S&) { return true; });
    for (Sender& sender : state.senders) {
        free(sender.heads);
        sender = {};
    }
    for (Receiver& receiver : state.receivers) {
        free(receiver.entries);
        receiver = {};
    }
    return 0;
}

int32_t SYS_BIND_RegisterSender(const SYS_BIND_SENDER_S* pstSender)
{
    if (!pstSender) return null_point();
    MutexLock locked(state.lock);
    const int32_t module = pstSender->enModId;
    const Counts counts = {pstSender->u32MaxDevCnt, pstSender->u32MaxChnCnt};
    bool taken = valid_module(module) && state.senders[module].heads;
    if (int32_t refused = check_registration(module, counts, taken)) return refused;
    auto* heads = allocate_table<Node>(counts);
    if (!heads) return no_table_memory();
    for (size_t i = 0; i < counts.places(); ++i) heads[i].next = heads[i].previous = &heads[i];
    state.senders[module] = {counts, heads};
    return 0;
}

int32_t SYS_BIND_RegisterReceiver(const SYS_BIND_RECEIVER_S* pstReceiver)
{
    if (!pstReceiver || !pstReceiver->pfnReceive) return null_point();
    MutexLock locked(state.lock);
    const int32_t module = pstReceiver->enModId;
    const Counts counts = {pstReceiver->u32MaxDevCnt, pstReceiver->u32MaxChnCnt};
    bool taken = valid_module(module) && state.receivers[module].entries;
    if (int32_t refused = check_registration(module, counts, taken)) return refused;
    auto* entries = allocate_table<Entry>(counts);
    if (!entries) return no_table_memory();
    // Connections to an earlier registration of the module.
    drop_connections([=](int32_t, const MPP_CHN_S& to) { return to.s32ModId == module; });
    state.receivers[module] = {counts, entries, pstReceiver->pfnReceive};
    return 0;
}

int32_t SYS_BIND_UnRegisterSender(int32_t enModId)
{
    if (!valid_module(enModId)) return coded(MPP_ERR_PARAM);
    MutexLock locked(state.lock);
    Sender& sender = state.senders[enModId];
    if (int32_t refused = check_unregistration(enModId, sender.heads)) return refused;
    drop_connections([=](int32_t from, const MPP_CHN_S&) { return from == enModId; });
    free(sender.heads);
    sender = {};
    return 0;
}

int32_t SYS_BIND_UnRegisterReceiver(int32_t enModId)
{
    if (!valid_module(enModId)) return coded(MPP_ERR_PARAM);
    MutexLock locked(state.lock);
    Receiver& receiver = state.receivers[enModId];
    if (int32_t refused = check_unregistration(enModId, receiver.entries)) return refused;
    // The connections stay, so that a sender gets a code for the receiver that is missing.
    free(receiver.entries);
    receiver = {};
    return 0;
}

int32_t SYS_BIND_SendData(int32_t enModId, int32_t s32DevId, int32_t s32ChnId, int32_t enDataType,
                          void* pData)
{
    uint32_t taken = 0;
    return send_data(__func__, {enModId, s32DevId, s32ChnId}, enDataType, pData, taken);
}

int32_t SYS_BIND_SendDataCounted(int32_t enModId, int32_t s32DevId, int32_t s32ChnId, int32_t enDataType,
                                 void* pData, uint32_t* pu32Taken)
{
    if (!pu32Taken) return null_point();
    *pu32Taken = 0;
    return send_data(__func__, {enModId, s32DevId, s32ChnId}, enDataType, pData, *pu32Taken);
}

int32_t SYS_Bind(const MPP_CHN_S* pstSrc, const MPP_CHN_S* pstDest)
{
    MutexLock locked(state.lock);
    Sender* sender = sender_of(*pstSrc);
    Receiver* receiver = sender ? receiver_of(*pstDest) : nullptr;
    if (!receiver) return coded(MPP_ERR_PARAM);
    Entry& entry = entry_of(*receiver, *pstDest);
    if (entry.bound) {
        fprintf(stderr, "Dest have bind Src:(%s,%d,%d) !\n", module_name(entry.source.s32ModId),
                entry.source.s32DevId, entry.source.s32ChnId);
        return coded(MPP_ERR_NOT_PERM);
    }
    auto* node = static_cast<Node*>(calloc(1, sizeof(Node)));
    if (!node) return coded(MPP_ERR_PARAM); // callers test for this number, not for out of memory
    node->destination = *pstDest;
    entry = {true, *pstSrc};
    append(head_of(*sender, *pstSrc), node);
    return 0;
}

int32_t SYS_UnBind(const MPP_CHN_S* pstDest)
{
    MutexLock locked(state.lock);
    Receiver* receiver = receiver_of(*pstDest);
    if (!receiver) return coded(MPP_ERR_PARAM);
    Entry& entry = entry_of(*receiver, *pstDest);
    if (!entry.bound) return 0;
    Sender& sender = state.senders[entry.source.s32ModId];
    Node* node = sender.heads ? find_node(head_of(sender, entry.source), *pstDest) : nullptr;
    zep::mpp_assert(node, kSource, __func__, __LINE__, "HI_TRUE == bFind");
    unlink_and_free(node);
    entry.bound = false;
    return 0;
}

int32_t SYS_GetBindByDest(const MPP_CHN_S* pstDest, MPP_CHN_S* pstSrc)
{
    MutexLock locked(state.lock);
    Receiver* receiver = receiver_of(*pstDest);
    if (!receiver) return coded(MPP_ERR_PARAM);
    const Entry& entry = entry_of(*receiver, *pstDest);
    if (!entry.bound) {
        fprintf(stderr, "Dest have not bind any Src \n");
        return coded(MPP_ERR_PARAM);
    }
    *pstSrc = entry.source;
    return 0;
}
