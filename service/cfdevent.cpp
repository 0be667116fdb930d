// Registry of descriptors to wait on.
#include "service/cfdevent.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <sys/select.h>

static_assert(sizeof(CFDEVENT_S) == 648 && offsetof(CFDEVENT_S, read_set) == 516 &&
              offsetof(CFDEVENT_S, reg_count) == 644);
static_assert(sizeof(fd_set) == sizeof(CFDEVENT_S::read_set) && FD_SETSIZE == CFDEVENT_SET_SIZE);

namespace {

void trace(const CFDEVENT_S* registry, const char* what, int32_t fd)
{
    if (!registry->verbose) return;
    printf("%s %8d, CNT %3d : ", what, fd, registry->reg_count);
    for (int32_t slot : registry->slots)
        if (slot >= 0) printf("%d ", slot);
    puts("");
}

// The highest registered descriptor, -1 for none, -2 when one does not fit the set.
int fill_set(const CFDEVENT_S* registry, fd_set* set)
{
    FD_ZERO(set);
    int highest = -1;
    for (int32_t slot : registry->slots) {
        if (slot < 0) continue;
        if (slot >= CFDEVENT_SET_SIZE) return -2;
        FD_SET(slot, set);
        highest = std::max(highest, int(slot));
    }
    return highest;
}

} // namespace

void CFDEVENT_Init(CFDEVENT_S* registry, int32_t verbose)
{
    memset(registry, 0, sizeof *registry);
    registry->verbose = verbose;
    std::fill(std::begin(registry->slots), std::end(registry->slots), -1);
}

int32_t CFDEVENT_Add(CFDEVENT_S* registry, int32_t fd)
{
    if (registry->reg_count > CFDEVENT_SLOTS) {
        // The missing letter stands in what monitoring scripts look for.
        printf("[%s] rror, reason(_this->reg_count is full [%d])\n", __func__, registry->reg_count);
        return -1;
    }
    int32_t* end = std::end(registry->slots);
    int32_t* slot = std::find_if(std::begin(registry->slots), end, [](int32_t s) { return s < 0; });
    int32_t index = -1;
    if (slot != end) {
        *slot = fd;
        ++registry->reg_count;
        index = int32_t(slot - registry->slots);
    }
    trace(registry, "ADD", fd);
    return index;
}

int32_t CFDEVENT_Del(CFDEVENT_S* registry, int32_t fd)
{
    int32_t* end = std::end(registry->slots);
    int32_t* slot = fd < 0 ? end : std::find(std::begin(registry->slots), end, fd);
    if (slot != end) {
        std::move(slot + 1, end, slot);
        end[-1] = -1;
        --registry->reg_count;
    }
    trace(registry, "DEL", fd);
    return 0;
}

int32_t CFDEVENT_Wait(CFDEVENT_S* registry, int32_t timeout_us)
{
    if (registry->reg_count < 1) return -3;
    fd_set set;
    int highest = fill_set(registry, &set);
    if (highest == -2 || timeout_us < 0) {
        memset(registry->read_set, 0, sizeof registry->read_set);
        errno = highest == -2 ? EBADF : EINVAL;
        return -2;
    }
    timeval timeout = {timeout_us / 1'000'000, timeout_us % 1'000'000};
    int ready = select(highest + 1, &set, nullptr, nullptr, &timeout);
    if (ready <= 0) FD_ZERO(&set);
    memcpy(registry->read_set, &set, sizeof set);
    if (ready < 0) return -2;
    return ready > 0 ? 0 : -1;
}

int32_t CFDEVENT_IsSet(const CFDEVENT_S* registry, int32_t fd)
{
    if (fd < 0 || fd >= CFDEVENT_SET_SIZE) return 0;
    return registry->read_set[fd / 8] >> (fd % 8) & 1;
}
