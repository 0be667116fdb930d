// What a frame costs in a channel, beside the same codec on the same samples, and the binder by receivers.
#include "mkp/bind/sys_bind.h"
#include "mpi/audio/g711.h"
#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_sys.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <malloc.h>
#include <vector>

namespace {

constexpr int kPoints = 160;

// Nanoseconds of a call, the best of several runs.
double best_ns(const std::function<void()>& call)
{
    constexpr int kRuns = 15, kCalls = 20'000;
    double best = 1e18;
    for (int run = 0; run < kRuns; ++run) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kCalls; ++i) call();
        const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
        best = std::min(best, spent.count() / kCalls);
    }
    return best;
}

void must(int32_t code)
{
    if (code == 0) return;
    fprintf(stderr, "code %#x\n", unsigned(code));
    exit(1);
}

uint64_t received = 0;
int32_t receive(int32_t, int32_t, int32_t, void*)
{
    ++received;
    return 0;
}

void row(const char* what, double ns) { printf("    %-58s %9.1f ns\n", what, ns); }

void frames(const char* name, int32_t type)
{
    std::vector<int16_t> samples(kPoints);
    for (int i = 0; i < kPoints; ++i) samples[size_t(i)] = int16_t(i * 397);
    AUDIO_FRAME_S frame = {};
    frame.u32BitWidth = AUDIO_BIT_WIDTH_16;
    frame.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(samples.data());
    frame.u32Len = kPoints * 2;
    uint32_t attribute = 0;
    const size_t before = size_t(mallinfo2().uordblks);
    const AENC_CHN_ATTR_S encoder = {type, 30, &attribute};
    must(HI_MPI_AENC_CreateChn(0, &encoder));
    const size_t after_encoder = size_t(mallinfo2().uordblks + mallinfo2().hblkhd);
    const ADEC_CHN_ATTR_S decoder = {type, 5, ADEC_MODE_PACK, &attribute};
    must(HI_MPI_ADEC_CreateChn(0, &decoder));
    const size_t after_decoder = size_t(mallinfo2().uordblks + mallinfo2().hblkhd);
    AENC_STREAM_HEADER_S stream = {};
    printf("%s, a frame of %d points\n", name, kPoints);
    row("encoder channel: send, get, release", best_ns([&] {
            must(HI_MPI_AENC_SendFrame(0, &frame));
            must(HI_MPI_AENC_GetStream(0, &stream, 0));
            must(HI_MPI_AENC_ReleaseStream(0, &stream));
        }));
    must(HI_MPI_AENC_SendFrame(0, &frame));
    must(HI_MPI_AENC_GetStream(0, &stream, 0));
    row("decoder channel: send, one receiver bound",
        best_ns([&] { must(HI_MPI_ADEC_SendStream(0, &stream, 1)); }));
    printf("    memory: encoder channel of 30 frames %zu bytes, decoder channel %zu bytes\n",
           after_encoder - before, after_decoder - after_encoder);
    must(HI_MPI_AENC_DestroyChn(0));
    must(HI_MPI_ADEC_DestroyChn(0));
}

void bare_codec()
{
    std::vector<int16_t> samples(kPoints, 1234);
    std::vector<uint8_t> octets(kPoints);
    puts("the codec alone, same frame");
    row("G.711 A-law, encode", best_ns([&] { G711_EncodeA(samples.data(), octets.data(), kPoints); }));
    row("G.711 A-law, decode", best_ns([&] { G711_DecodeA(octets.data(), samples.data(), kPoints); }));
}

void binder()
{
    puts("SYS_BIND_SendData");
    const SYS_BIND_RECEIVER_S receiver = {5, 1, 64, receive};
    must(SYS_BIND_RegisterReceiver(&receiver));
    int32_t next = 0;
    for (int32_t count : {1, 4, 16}) {
        for (int32_t i = 0; i < count; ++i) {
            const MPP_CHN_S source = {HI_ID_ADEC, 0, count}, destination = {5, 0, next++};
            must(SYS_Bind(&source, &destination));
        }
        const size_t before = size_t(mallinfo2().uordblks);
        int item = 0;
        const double ns =
            best_ns([&] { must(SYS_BIND_SendData(HI_ID_ADEC, 0, count, MPP_DATA_AUDIO_FRAME, &item)); });
        printf("    to %2d receivers %47.1f ns, %zu bytes allocated\n", count, ns,
               size_t(mallinfo2().uordblks) - before);
    }
}

} // namespace

int main()
{
    must(MPI_AENC_Init());
    must(MPI_ADEC_Init());
    const SYS_BIND_RECEIVER_S output = {HI_ID_AO, 3, 16, receive};
    must(SYS_BIND_RegisterReceiver(&output));
    const MPP_CHN_S source = {HI_ID_ADEC, 0, 0}, destination = {HI_ID_AO, 0, 0};
    must(SYS_Bind(&source, &destination));
    bare_codec();
    frames("G.711 A-law", PT_G711A);
    frames("G.726, 16 kbit/s", PT_G726);
    frames("ADPCM", PT_ADPCM);
    binder();
    return received == 0;
}
