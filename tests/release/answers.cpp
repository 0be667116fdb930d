// The product's own parts give the same answers on the camera's processor and C library as on a PC, where
// this program runs too.
#include "common/cicomm.h"
#include "common/cutil_conf.h"
#include "common/qrn_udp.h"
#include "common/user_block.hpp"
#include "mpi/audio/adpcm.h"
#include "mpi/audio/g711.h"
#include "mpi/audio/g726.h"
#include "mpi/audio/resampler.h"
#include "service/cthread.h"
#include "tests/release/checks.hpp"
#include "upgrade/crc32.hpp"

#include <arpa/inet.h>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t kPoints = 1600;
int16_t voice[kPoints];
int16_t decoded[kPoints * 6];
uint8_t octets[kPoints * 2];

// Tones that come and go, with noise: every code of the coders is met.
void speak()
{
    uint32_t noise = 1;
    int phase = 0;
    for (size_t i = 0; i < kPoints; ++i) {
        noise = noise * 1664525u + 1013904223u;
        phase += 37 + int(i / 400) * 211;
        const int saw = int16_t(uint16_t(phase * 64));
        voice[i] = int16_t(saw * int(i % 400) / 400 + int(noise >> 16) % 2048 - 1024);
    }
}

uint32_t sum(const void* data, size_t size) { return zep::crc32_update(0, data, size); }

void crc_has_its_published_values()
{
    EQUAL(zep::crc32_update(0, "", 0), 0);
    EQUAL(sum("123456789", 9), 0xCBF43926u);
    static uint8_t bytes[4096];
    memset(bytes, 0xFF, 32);
    EQUAL(sum(bytes, 32), 0xFF6CAB0Bu);
    for (size_t i = 0; i < sizeof bytes; ++i) bytes[i] = uint8_t(i * i >> 3);
    const uint32_t whole = sum(bytes + 1, sizeof bytes - 1);
    uint32_t pieces = 0;
    for (size_t at = 1, n = 1; at < sizeof bytes; at += n, n = n * 3 % 701) {
        if (n > sizeof bytes - at) n = sizeof bytes - at;
        pieces = zep::crc32_update(pieces, bytes + at, n);
    }
    EQUAL(pieces, whole);
}

void g711_codes_every_sample()
{
    static int16_t all[65536];
    static uint8_t coded[65536];
    for (int i = 0; i < 65536; ++i) all[i] = int16_t(i - 32768);
    G711_EncodeA(all, coded, 65536);
    EQUAL(sum(coded, sizeof coded), 0x9133796eu);
    G711_EncodeU(all, coded, 65536);
    EQUAL(sum(coded, sizeof coded), 0x6399d432u);
    EQUAL(a2l_table[0xd5], 8);
    EQUAL(u2l_table[0x00], -32124);
}

void g726_codes_and_decodes()
{
    const uint32_t wanted[][2] = {{0xe454ac97u, 0xd3e3f8b6u},
                                  {0x834084b6u, 0xfe619809u},
                                  {0xbff5f766u, 0x11beffceu},
                                  {0x311b012du, 0xbc579049u}};
    for (uint32_t bits = 2; bits <= 5; ++bits) {
        G726_STATE_S encoder, decoder;
        EQUAL(G726_Init(&encoder, bits, G726_PACK_RFC3551), 0);
        EQUAL(G726_Init(&decoder, bits, G726_PACK_RFC3551), 0);
        const size_t size = G726_Encode(&encoder, voice, kPoints, octets);
        EQUAL(size, kPoints * bits / 8);
        EQUAL(sum(octets, size), wanted[bits - 2][0]);
        EQUAL(G726_Decode(&decoder, octets, size, decoded), kPoints);
        EQUAL(sum(decoded, kPoints * 2), wanted[bits - 2][1]);
    }
}

void adpcm_codes_and_decodes()
{
    const uint32_t wanted[][2] = {{0xa7f73e47u, 0x2d4133ddu}, {0xc740e6ceu, 0x148819a0u}};
    for (uint32_t format : {ADPCM_DVI4, ADPCM_IMA_BLOCK}) {
        ADPCM_STATE_S state;
        EQUAL(ADPCM_Init(&state, format), 0);
        const size_t points = 320 + format; // even and odd
        const size_t size = ADPCM_Encode(&state, voice, points, octets);
        EQUAL(size, ADPCM_FrameBytes(format, points));
        EQUAL(sum(octets, size), wanted[format][0]);
        EQUAL(ADPCM_Decode(&state, octets, size, decoded), points);
        EQUAL(sum(decoded, points * 2), wanted[format][1]);
    }
}

void resampler_goes_up_and_down()
{
    static const struct {
        int kind;
        int (*process)(RESAMPLER_S*, const int16_t*, int, int16_t*);
        int points;
        uint32_t wanted;
    } cases[] = {
        {RESAMPLER_1X2, ResamplerMono1X2Process, 3200, 0x795f4c9du},
        {RESAMPLER_2X1, ResamplerMono2X1Process, 800, 0x85f18fe7u},
        {RESAMPLER_1X4, ResamplerMono1X4Process, 6400, 0x5c2d638fu},
        {RESAMPLER_4X1, ResamplerMono4X1Process, 400, 0xacaeaa52u},
        {RESAMPLER_1X6, ResamplerMono1X6Process, 9600, 0xfc7210beu},
        {RESAMPLER_6X1, ResamplerMono6X1Process, 266, 0x06a6455bu},
    };
    for (const auto& c : cases) {
        RESAMPLER_S* resampler = ResamplerCreate(c.kind, c.points > int(kPoints) ? 8000 : 48000);
        EQUAL(c.process(resampler, voice, kPoints, decoded), c.points);
        EQUAL(sum(decoded, size_t(c.points) * 2), c.wanted);
        ResamplerDestroy(resampler);
    }
}

void configuration_is_read_and_written()
{
    char folder[] = "/tmp/zep.XXXXXX";
    if (!mkdtemp(folder) || chdir(folder) != 0) return EQUAL(0, 1);
    const char before[] = "# video\n[stream]\n port = 81 \n\"name\"=\"front door\"\nopen";
    const int fd = open("a.conf", O_CREAT | O_WRONLY | O_CLOEXEC, 0640);
    EQUAL(write(fd, before, sizeof before - 1), sizeof before - 1);
    close(fd);
    static char value[CUTIL_CONF_VALUE_SIZE];
    EQUAL(CUTIL_GetConfValue("a.conf", "port", value), 0);
    TEXT(value, "81");
    EQUAL(CUTIL_GetConfValue("a.conf", "name", value), 0);
    TEXT(value, "front door");
    EQUAL(CUTIL_SetFileValue("a.conf", "temp", "open", "yes"), 0);
    EQUAL(CUTIL_SetFileValue("a.conf", "temp", "more", "1"), 0);
    char after[256] = {};
    const int again = open("a.conf", O_RDONLY | O_CLOEXEC);
    EQUAL(read(again, after, sizeof after - 1) > 0, 1);
    close(again);
    TEXT(after, "# video\n[stream]\n port = 81 \n\"name\"=\"front door\"\nopen=yes\nmore=1\n");
    EQUAL(access("temp", F_OK), -1);
    EQUAL(CUTIL_GetConfValue("none.conf", "port", value), -1);
    EQUAL(CUTIL_AtoiDigits("2147483648"), INT32_MAX);
    unlink("a.conf");
    EQUAL(chdir("/") | rmdir(folder), 0);
}

void passwords_are_scrambled_and_back()
{
    zep::UserBlock block;
    EQUAL(zep::user_block_from_hex("5A5A5A5A5A5A5A5A5A5A5A5A5A39383b5a5a5a5a5a5a5a5a5a5a5a5a5a5a015A", block),
          1);
    char text[zep::kUserPasswordSize + 1];
    zep::unscramble_password(block, text);
    TEXT(text, "abc");
    zep::unscramble_password(zep::scramble_password("sixteen-chars-xy and more"), text);
    TEXT(text, "sixteen-chars-x");
}

int port_of(int fd)
{
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
}

void messages_are_framed_and_checked()
{
    static CICOMM sender, receiver;
    const int free_port = QRN_OpenLocalUDPSSocket(0);
    const int port = port_of(free_port);
    close(free_port);
    EQUAL(CICOMM_Init(&receiver, uint32_t(port)), 0);
    EQUAL(CICOMM_Init(&sender, 0), 0);
    EQUAL(CICOMM_Send(&sender, 0x01020304, port, "hello", 5), 37);
    uint32_t command = 0;
    EQUAL(CICOMM_RecvChecked(&receiver, &command), 5);
    EQUAL(command, 0x01020304);
    const uint8_t wire[] = "ICOM\1\0\0\0\4\3\2\1\0\0\0\0\5\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0hello";
    EQUAL(memcmp(CICOMM_GetRecvHeader(&receiver), wire, 37), 0);
    EQUAL(CICOMM_CheckMessage(wire, 37), 5);
    EQUAL(CICOMM_CheckMessage(wire, 36), -1); // claims more than came
    EQUAL(CICOMM_Close(&sender) | CICOMM_Close(&receiver), 0);
}

std::atomic<int> starts, ticks, ends;

void worker_ticks_from_start_to_stop()
{
    CTHREAD worker;
    EQUAL(CTHREAD_Init(
              &worker, nullptr, [](void*) -> int32_t { return ++starts, 0; },
              [](void*) -> int32_t { return usleep(5000), ++ticks, 0; },
              [](void*) -> int32_t { return ++ends, 0; }),
          0);
    EQUAL(worker.Start(&worker), 0);
    EQUAL(worker.state.load(), CTHREAD_RUNNING);
    EQUAL(worker.Stop(&worker), 0);
    EQUAL(worker.state.load(), CTHREAD_ENDED);
    EQUAL(starts * 10 + ends, 11);
    EQUAL(ticks > 1, 1);
}

} // namespace

int main()
{
    alarm(100); // a wait that never ends must not keep the tests
    speak();
    const checks::Group groups[] = {
        {"crc", crc_has_its_published_values},
        {"g711", g711_codes_every_sample},
        {"g726", g726_codes_and_decodes},
        {"adpcm", adpcm_codes_and_decodes},
        {"resampler", resampler_goes_up_and_down},
        {"configuration", configuration_is_read_and_written},
        {"passwords", passwords_are_scrambled_and_back},
        {"messages", messages_are_framed_and_checked},
        {"worker", worker_ticks_from_start_to_stop},
    };
    return checks::run(groups);
}
