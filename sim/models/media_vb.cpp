// The buffer-pool driver.
#include "sim/models/pools.hpp"
#include "sim/models/media.hpp"
#include "sim/models/table.hpp"

namespace vcam::models {
namespace {
namespace vb_driver {

using namespace media;

enum Request : uint32_t {
    kCreatePool = 0xC0144201,
    kDestroyPool = 0xC0044202,
    kGetBlock = 0xC0144203,
    kReleaseBlock = 0xC0044204,
    kToPhysical = 0xC0044205,
    kToPool = 0xC0044206,
    kInit = 0x4207,
    kExit = 0x4208,
    kGetConf = 0x80444209,
    kSetConf = 0x4044420A,
    kPoolInfo = 0xC010420B,
    kPoolInUse = 0xC004420C,
};
constexpr RequestName kNames[] = {
    {kCreatePool, "createpool"},
    {kDestroyPool, "destroypool"},
    {kGetBlock, "getblock"},
    {kReleaseBlock, "release"},
    {kToPhysical, "tophys"},
    {kToPool, "topool"},
    {kInit, "init"},
    {kExit, "exit"},
    {kGetConf, "getconf"},
    {kSetConf, "setconf"},
    {kPoolInfo, "poolinfo"},
    {kPoolInUse, "inuse"},
};

struct PoolRecord {
    uint32_t pool, block_size, blocks, minus_one, zero;
};
struct BlockRecord {
    uint32_t pool, size, zero, handle, any;
};
struct InfoRecord {
    uint32_t pool, size, physical, blocks;
};

constexpr int refused(uint32_t number) { return coded(kModVb, number); }

bool usable(const uint32_t (&conf)[17])
{
    if (conf[0] > kCommonPools) return false;
    for (uint32_t i = 0; i < conf[0]; ++i)
        if ((conf[1 + 2 * i] == 0) != (conf[2 + 2 * i] == 0) || conf[2 + 2 * i] > kBlocks) return false;
    return true;
}

void drop_all(Page& page)
{
    for (Pool& p : page.vb.pools)
        if (p.used) drop_pool(p);
}

int start(Page& page)
{
    if (page.vb.ready) return 0;
    const uint32_t(&conf)[17] = page.vb.configuration;
    for (uint32_t i = 0; i < conf[0]; ++i) {
        if (!conf[1 + 2 * i]) continue;
        const uint32_t pool = make_pool(page, kModVb, 0, conf[1 + 2 * i], conf[2 + 2 * i]);
        if (pool == kPools) return drop_all(page), refused(kNoMemory);
        page.vb.pools[pool].common = 1;
    }
    page.vb.ready = 1;
    return 0;
}

int stop(Page& page)
{
    for (const Pool& p : page.vb.pools)
        if (p.used && (p.module != kModVb || in_use(p, Block::user))) return refused(kBusy);
    drop_all(page);
    page.vb.ready = 0;
    return 0;
}

int create(Page& page, PoolRecord& r)
{
    if (!page.vb.ready) return refused(kNotReady);
    if (!r.block_size || !r.blocks || r.blocks > kBlocks) return refused(kIllegal);
    const uint32_t pool = make_pool(page, kModVb, 0, r.block_size, r.blocks);
    if (pool == kPools) return refused(kNoMemory);
    r.pool = pool;
    return 0;
}

int destroy(Page& page, uint32_t number)
{
    Pool* pool = pool_at(page, number);
    if (!pool) return refused(number < kPools ? kMissing : kIllegal);
    if (pool->module != kModVb || pool->common) return refused(kNotPermitted);
    if (in_use(*pool, Block::user)) return refused(kBusy);
    drop_pool(*pool);
    return 0;
}

// The smallest common pool whose blocks are large enough and not all taken.
uint32_t best_pool(const Page& page, uint32_t size)
{
    uint32_t best = kPools;
    for (uint32_t i = 0; i < kPools; ++i) {
        const Pool& p = page.vb.pools[i];
        if (!p.used || !p.common || p.block_size < size || !in_use(p, Block::free)) continue;
        if (best == kPools || p.block_size < page.vb.pools[best].block_size) best = i;
    }
    return best;
}

int get_block(Page& page, BlockRecord& r)
{
    if (!page.vb.ready) return refused(kNotReady);
    const uint32_t number = r.any ? best_pool(page, r.size) : r.pool;
    Pool* pool = pool_at(page, number);
    if (!pool && r.any) return refused(kNoMemory);
    if (!pool || pool->module != kModVb) return refused(kIllegal);
    const uint32_t block = take_block(*pool, Block::user);
    if (block == kBlocks) return refused(kNoMemory);
    r.handle = handle_of(number, block);
    return 0;
}

// One word in, one word out.
int on_handle(Page& page, uint32_t request, uint32_t& word)
{
    uint32_t number = 0, block = 0;
    if (!find_handle(page, word, number, block)) return refused(kIllegal);
    Pool& pool = page.vb.pools[number];
    if (request == kToPhysical) word = physical_of(pool, block);
    if (request == kToPool) word = number;
    if (request != kReleaseBlock) return 0;
    if (pool.module != kModVb) return refused(kNotPermitted);
    free_block(pool, block);
    return 0;
}

int info(Page& page, InfoRecord& r)
{
    const Pool* pool = pool_at(page, r.pool);
    if (!pool) return refused(r.pool < kPools ? kMissing : kIllegal);
    r = {r.pool, pool->block_size * pool->blocks, pool->physical, pool->blocks};
    return 0;
}

class VbDriver final : public MediaModel {
public:
    VbDriver() : MediaModel("/dev/vb", "vb", kNames) {}

private:
    int answer(int, uint32_t request, void* argument) override
    {
        Locked page;
        switch (request) {
        case kInit:
            return start(*page);
        case kExit:
            return stop(*page);
        case kGetConf:
            memcpy(argument, page->vb.configuration, sizeof page->vb.configuration);
            return 0;
        case kSetConf:
            return configure(*page, argument);
        case kCreatePool:
            return on_record<PoolRecord>(argument, [&](auto& r) { return create(*page, r); });
        case kGetBlock:
            return on_record<BlockRecord>(argument, [&](auto& r) { return get_block(*page, r); });
        case kPoolInfo:
            return on_record<InfoRecord>(argument, [&](auto& r) { return info(*page, r); });
        case kDestroyPool:
            return destroy(*page, load<uint32_t>(argument));
        case kPoolInUse:
            return on_record<uint32_t>(argument, [&](auto& word) { return query(*page, word); });
        default:
            return on_record<uint32_t>(argument, [&](auto& word) { return on_handle(*page, request, word); });
        }
    }

    template<class Record, class Run> static int on_record(void* argument, Run run)
    {
        auto record = load<Record>(argument);
        const int result = run(record);
        return result ? result : store(argument, record);
    }

    static int configure(Page& page, const void* argument)
    {
        uint32_t conf[17];
        memcpy(conf, argument, sizeof conf);
        if (!usable(conf)) return refused(kIllegal);
        if (page.vb.ready) return refused(kBusy);
        memcpy(page.vb.configuration, conf, sizeof conf);
        return 0;
    }

    static int query(Page& page, uint32_t& word)
    {
        const Pool* pool = pool_at(page, word);
        if (!pool) return refused(word < kPools ? kMissing : kIllegal);
        word = in_use(*pool, Block::user) != 0;
        return 0;
    }
};

} // namespace vb_driver
} // namespace

Model& media_vb()
{
    static vb_driver::VbDriver device;
    return device;
}

} // namespace vcam::models
