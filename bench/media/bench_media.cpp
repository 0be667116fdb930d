// What the media platform adds to its drivers. Runs inside the virtual camera (media.sh): each path beside a
// bare request loop over the same driver with a table-driven G.711 over the same samples, so that the
// simulated driver's own time is on both sides. Times are the host's, whose clock does not advance through
// the camera's waits.
#include "mkp/bind/sys_bind.h"
#include "mpi/audio/g711.h"
#include "mpi/src/ai_uapi.h"
#include "mpi/src/ao_uapi.h"
#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_ai.h"
#include "mpi/src/mpi_ao.h"
#include "mpi/src/mpi_sys.h"
#include "mpi/src/mpi_vb.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <malloc.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

// Calls of the platform that would enter the kernel, and its allocations; see the linker's --wrap.
static long kernel_calls, allocations;
extern "C" {
int __real_ioctl(int, unsigned long, void*);
int __wrap_ioctl(int fd, unsigned long request, void* argument)
{
    ++kernel_calls;
    return __real_ioctl(fd, request, argument);
}
int __real_poll(pollfd*, nfds_t, int);
int __wrap_poll(pollfd* fds, nfds_t count, int limit)
{
    ++kernel_calls;
    return __real_poll(fds, count, limit);
}
void* __real_malloc(size_t);
void* __wrap_malloc(size_t size)
{
    ++allocations;
    return __real_malloc(size);
}
void* __real_calloc(size_t, size_t);
void* __wrap_calloc(size_t count, size_t size)
{
    ++allocations;
    return __real_calloc(count, size);
}
}

namespace {

constexpr int32_t kDev = 2;
constexpr uint32_t kPoints = 160, kFrames = 48;
constexpr AIO_ATTR_S kAttr = {8000, AUDIO_BIT_WIDTH_16, 0, AUDIO_SOUND_MONO, 1, 50, kPoints, 1, 1};
constexpr useconds_t kRound = 20000 * (kFrames + 1); // camera time that fills or drains a channel

double host_seconds()
{
    timespec now{}; // by the system call itself: the library's answer is camera time
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

void must(int32_t result, const char* what)
{
    if (result >= 0) return;
    fprintf(stderr, "bench_media: %s: %#x\n", what, unsigned(result));
    exit(1);
}
#define MUST(call) must(call, #call)

void start()
{
    VB_CONF_S pools = {};
    MPP_SYS_CONF_S conf = {16};
    HI_MPI_SYS_Exit();
    HI_MPI_VB_Exit();
    MUST(HI_MPI_VB_SetConf(&pools));
    MUST(HI_MPI_VB_Init());
    MUST(HI_MPI_SYS_SetConf(&conf));
    MUST(HI_MPI_SYS_Init());
    MUST(HI_MPI_AI_SetPubAttr(kDev, &kAttr));
    MUST(HI_MPI_AI_Enable(kDev));
    MUST(HI_MPI_AO_SetPubAttr(kDev, &kAttr));
    MUST(HI_MPI_AO_Enable(kDev));
    MUST(HI_MPI_AO_EnableChn(kDev, 0));
}

// Rounds of frames that wait already, timed frame by frame round.
template<class Before, class Frame> void measure(benchmark::State& state, Before before, Frame frame)
{
    long calls = 0, memory = 0, frames = 0;
    for (auto _ : state) {
        before();
        const long calls_before = kernel_calls, memory_before = allocations;
        const double begin = host_seconds();
        for (uint32_t i = 0; i < kFrames; ++i) frame();
        state.SetIterationTime((host_seconds() - begin) / kFrames);
        calls += kernel_calls - calls_before;
        memory += allocations - memory_before;
        frames += kFrames;
    }
    state.counters["system_calls"] = double(calls) / double(frames);
    state.counters["allocations"] = double(memory) / double(frames);
}

void collect_frames()
{
    HI_MPI_AI_DisableChn(kDev, 0);
    MUST(HI_MPI_AI_EnableChn(kDev, 0));
    usleep(kRound);
}

// The plain encoder: one look-up a sample.
const uint8_t* encode_table()
{
    static uint8_t* table = nullptr;
    if (table) return table;
    table = static_cast<uint8_t*>(malloc(65536));
    for (int s = -32768; s < 32768; ++s) {
        const auto sample = int16_t(s);
        G711_EncodeA(&sample, &table[uint16_t(sample)], 1);
    }
    return table;
}

const int16_t* decode_table()
{
    static int16_t table[256];
    for (int i = 0; i < 256; ++i) {
        const auto code = uint8_t(i);
        G711_DecodeA(&code, &table[i], 1);
    }
    return table;
}

void input_platform(benchmark::State& state)
{
    start();
    uint32_t codec[4] = {};
    const AENC_CHN_ATTR_S attr = {PT_G711A, 50, codec};
    MPP_CHN_S input = {HI_ID_AI, kDev, 0}, encoder = {HI_ID_AENC, 0, 0};
    MUST(HI_MPI_AENC_CreateChn(0, &attr));
    MUST(HI_MPI_SYS_Bind(&input, &encoder));
    measure(state, collect_frames, [] {
        AENC_STREAM_HEADER_S stream;
        MUST(HI_MPI_AENC_GetStream(0, &stream, 1));
        benchmark::DoNotOptimize(stream.pu8Data[0]);
        MUST(HI_MPI_AENC_ReleaseStream(0, &stream));
    });
}
BENCHMARK(input_platform)->UseManualTime();

void input_bare(benchmark::State& state)
{
    start();
    const int fd = HI_MPI_AI_GetFd(kDev, 0);
    const uint8_t* table = encode_table();
    uint8_t* pool = nullptr;
    uint32_t base = 0;
    measure(state, collect_frames, [&] {
        AI_EXCHANGE_S record;
        uint8_t octets[kPoints];
        MUST(ioctl(fd, AI_REQ_GET_FRAME, &record));
        if (!pool) {
            base = 0x8C000000;
            pool = static_cast<uint8_t*>(HI_MPI_SYS_Mmap(base, 0x100000));
        }
        const auto* samples = reinterpret_cast<int16_t*>(pool + (record.stFrame.u32PhysAddr[0] - base));
        for (uint32_t i = 0; i < kPoints; ++i) octets[i] = table[uint16_t(samples[i])];
        benchmark::DoNotOptimize(octets);
        MUST(ioctl(fd, AI_REQ_RELEASE_FRAME, &record));
    });
    HI_MPI_SYS_Munmap(pool, 0x100000);
}
BENCHMARK(input_bare)->UseManualTime();

void drain_output()
{
    usleep(kRound);
    HI_MPI_AO_ClearChnBuf(kDev, 0);
}

void output_platform(benchmark::State& state)
{
    start();
    uint32_t codec[4] = {};
    const ADEC_CHN_ATTR_S attr = {PT_G711A, 5, ADEC_MODE_PACK, codec};
    MPP_CHN_S decoder = {HI_ID_ADEC, 0, 0}, output = {HI_ID_AO, kDev, 0};
    MUST(HI_MPI_ADEC_CreateChn(0, &attr));
    MUST(HI_MPI_SYS_Bind(&decoder, &output));
    uint8_t octets[kPoints];
    memset(octets, 0x55, sizeof octets);
    AENC_STREAM_HEADER_S stream = {octets, 0, kPoints, 0, 0};
    measure(state, drain_output, [&] { MUST(HI_MPI_ADEC_SendStream(0, &stream, 1)); });
}
BENCHMARK(output_platform)->UseManualTime();

void output_bare(benchmark::State& state)
{
    start();
    const int fd = HI_MPI_AO_GetFd(kDev, 0);
    const int16_t* table = decode_table();
    uint8_t octets[kPoints];
    memset(octets, 0x55, sizeof octets);
    measure(state, drain_output, [&] {
        int16_t samples[kPoints];
        for (uint32_t i = 0; i < kPoints; ++i) samples[i] = table[octets[i]];
        AUDIO_FRAME_S frame = {};
        frame.u32BitWidth = AUDIO_BIT_WIDTH_16;
        frame.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(samples);
        frame.u32Len = sizeof samples;
        frame.s32PoolId = -1;
        MUST(ioctl(fd, AO_REQ_SEND_FRAME, &frame));
    });
}
BENCHMARK(output_bare)->UseManualTime();

long received;
int32_t receive(int32_t, int32_t, int32_t, void*) { return int32_t(++received & 0); }

// One sender channel with the given number of receivers.
void send_data(benchmark::State& state)
{
    constexpr int32_t kSender = 30, kReceiver = 31;
    const SYS_BIND_SENDER_S sender = {kSender, 1, 32};
    const SYS_BIND_RECEIVER_S receiver = {kReceiver, 1, 32, receive};
    MUST(SYS_BIND_RegisterSender(&sender));
    MUST(SYS_BIND_RegisterReceiver(&receiver));
    const MPP_CHN_S from = {kSender, 0, 0};
    for (int32_t i = 0; i < state.range(0); ++i) {
        const MPP_CHN_S to = {kReceiver, 0, i};
        MUST(SYS_Bind(&from, &to));
    }
    AUDIO_FRAME_S frame = {};
    const long memory = allocations;
    for (auto _ : state) MUST(SYS_BIND_SendData(kSender, 0, 0, MPP_DATA_AUDIO_FRAME, &frame));
    state.counters["allocations"] = double(allocations - memory);
    MUST(SYS_BIND_UnRegisterReceiver(kReceiver));
    MUST(SYS_BIND_UnRegisterSender(kSender));
}
BENCHMARK(send_data)->Arg(1)->Arg(4)->Arg(16);

// Long arrays are mappings of their own.
size_t in_use()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

template<class Run> void memory(const char* what, Run run)
{
    const size_t before = in_use();
    run();
    printf("%-44s %7zu bytes\n", what, in_use() - before);
}

void memory_a_channel()
{
    start();
    static const struct {
        int32_t type;
        const char* name;
    } kCodecs[] = {{PT_G711A, "G.711"}, {PT_G726, "G.726"}, {PT_ADPCM, "ADPCM"}, {PT_LPCM, "LPCM"}};
    uint32_t codec[4] = {};
    int32_t channel = 0;
    char line[64];
    for (const auto& row : kCodecs) {
        const AENC_CHN_ATTR_S encode = {row.type, 30, codec};
        const ADEC_CHN_ATTR_S decode = {row.type, 5, ADEC_MODE_PACK, codec};
        snprintf(line, sizeof line, "encoder channel, %s, 30 frames", row.name);
        memory(line, [&] { MUST(HI_MPI_AENC_CreateChn(channel, &encode)); });
        snprintf(line, sizeof line, "decoder channel, %s", row.name);
        memory(line, [&] { MUST(HI_MPI_ADEC_CreateChn(channel, &decode)); });
        ++channel;
    }
    MUST(HI_MPI_AI_EnableChn(kDev, 0));
    memory("input channel, noise reduction", [] { MUST(HI_MPI_AI_EnableAnr(kDev, 0)); });
    const AIO_RESAMPLE_ATTR_S up = {kPoints, 8000, 5};
    memory("input channel, rate times 6", [&] { MUST(HI_MPI_AI_EnableReSmp(kDev, 0, &up)); });
    memory("binding of a decoder to an output", [] {
        MPP_CHN_S decoder = {HI_ID_ADEC, 0, 0}, output = {HI_ID_AO, kDev, 0};
        MUST(HI_MPI_SYS_Bind(&decoder, &output));
    });
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    memory_a_channel();
    HI_MPI_SYS_Exit();
    return 0;
}
