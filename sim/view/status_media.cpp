// The media drivers' part of vcam status: what is bound to what, what is in use, how loud it is.
#include "sim/view/status_media.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/models/audio.hpp"
#include "sim/models/pools.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace vcam {
namespace {

using namespace media;

constexpr double kQuietest = -60; // dB of full scale, the meter's left end
constexpr int kMeterWidth = 20;

double decibels(uint32_t level) { return level ? 20 * std::log10(level / 32768.0) : -HUGE_VAL; }

// "|########            | -24.1 dB, peak -3.0", filled up to the mean level, the peak marked.
std::string meter(const Level& level)
{
    const auto place = [](uint32_t value) {
        const double part = (decibels(value) - kQuietest) / -kQuietest;
        return int(std::lround(std::clamp(part, 0.0, 1.0) * kMeterWidth));
    };
    std::string bar(kMeterWidth, ' ');
    std::fill_n(bar.begin(), place(level.rms), '#');
    if (const int at = place(level.peak)) bar[size_t(at - 1)] = '|';
    const auto number = [](uint32_t value) {
        return value ? text("%.1f dB", decibels(value)) : std::string("silent");
    };
    return "[" + bar + "] " + number(level.rms) + ", highest " + number(level.highest);
}

std::string name_of(const Chn& c)
{
    if (c.module == int(kModAi)) return text("ai %d,%d", c.device, c.channel);
    if (c.module == int(kModAo)) return text("ao %d,%d", c.device, c.channel);
    return text("%s %d", c.module == int(kModAenc) ? "aenc" : "module", c.channel);
}

std::string slot_name(const char* module, uint32_t slot)
{
    return text("%s %u,%u", module, slot / kChannels, slot % kChannels);
}

std::string describe(const Attributes& a)
{
    return text("%u Hz, %u bits, %s, %u points a frame, %u frames, %u channels", a.rate, a.bit_width ? 16 : 8,
                a.sound_mode == kStereo ? "stereo" : "mono", a.points, a.frames, a.channels);
}

bool used(const AiChannel& c) { return c.enabled || c.delivered || c.lost; }
bool used(const AoChannel& c) { return c.enabled || c.frames; }

std::string owner(const Pool& p)
{
    if (p.module == kModAi) return text("ai %u", p.device);
    return p.common ? "common" : "program";
}

void print_pools(const Page& page)
{
    for (uint32_t i = 0; i < kPools; ++i) {
        const Pool& p = page.vb.pools[i];
        if (!p.used) continue;
        printf("pool %-4u %s, %u blocks of %u at 0x%08X, in use: driver %u, programs %u, at most %u\n", i,
               owner(p).c_str(), p.blocks, p.block_size, p.physical, in_use(p, Block::driver),
               in_use(p, Block::user), p.most_in_use);
    }
    for (const MmzBlock& b : page.mmz)
        if (b.used) printf("memory    0x%08X, %u bytes %s\n", b.physical, b.size, b.name);
}

void print_input(const Page& page)
{
    for (uint32_t i = 0; i < kDevices; ++i) {
        const AiDevice& d = page.ai_device[i];
        if (d.configured)
            printf("ai %-6u %s, %s\n", i, d.enabled ? "enabled" : "off", describe(d.attributes).c_str());
    }
    for (uint32_t slot = 0; slot < kSlots; ++slot) {
        const AiChannel& c = page.ai[slot];
        if (!used(c)) continue;
        printf("%-9s %s, %u waiting, %u taken, %u given back, %u lost%s  %s\n", slot_name("ai", slot).c_str(),
               c.enabled ? "enabled" : "off", c.count, c.delivered, c.released, c.lost,
               c.aec ? text(", %u with echo reference", c.echoes).c_str() : "", meter(c.level).c_str());
    }
}

void print_output(const Page& page)
{
    for (uint32_t i = 0; i < kDevices; ++i) {
        const AoDevice& d = page.ao_device[i];
        if (d.configured)
            printf("ao %-6u %s, %s\n", i, d.enabled ? "enabled" : "off", describe(d.attributes).c_str());
    }
    for (uint32_t slot = 0; slot < kSlots; ++slot) {
        const AoChannel& c = page.ao[slot];
        if (!used(c)) continue;
        printf("%-9s %s, %u frames, %u points queued, %u under-runs, %u times full, %u points dropped  %s\n",
               slot_name("ao", slot).c_str(),
               c.paused    ? "paused"
               : c.enabled ? "enabled"
                           : "off",
               c.frames, c.enabled ? queued(page, slot, clock::now_ns()) : 0, c.underruns, c.full, c.cleared,
               meter(c.level).c_str());
    }
}

void print_acodec(const Acodec& chip)
{
    constexpr const char* kDriverNames[] = {"",      "rate",  "input", "",      "",     "mic L",
                                            "mic R", "DAC L", "DAC R", "ADC L", "ADC R"};
    std::vector<std::string> words;
    for (size_t i = 0; i < std::size(kDriverNames); ++i)
        if (chip.known[i]) words.push_back(text("%s 0x%02X", kDriverNames[i], chip.setting[i]));
    if (!words.empty()) printf("acodec    %s\n", join(words, ", ").c_str());
}

// Only what goes to an output flows in the drivers; an encoder's program fetches for itself.
bool flows(const Binding& b) { return b.destination.module == int(kModAo); }

void print_binds(const Page& page)
{
    for (const Binding& b : page.sys.binds) {
        if (!b.used) continue;
        const std::string counts = text(", %u frames, %u dropped", b.frames, b.dropped);
        printf("bind      %s -> %s%s\n", name_of(b.source).c_str(), name_of(b.destination).c_str(),
               flows(b) ? counts.c_str() : "");
    }
}

cli::Json bind_json(const Binding& b)
{
    cli::Json json = {{"from", name_of(b.source)}, {"to", name_of(b.destination)}};
    if (flows(b)) json.update({{"frames", b.frames}, {"dropped", b.dropped}});
    return json;
}

cli::Json pool_json(uint32_t number, const Pool& p)
{
    return {{"pool", number},
            {"owner", owner(p)},
            {"blocks", p.blocks},
            {"block_size", p.block_size},
            {"address", p.physical},
            {"driver", in_use(p, Block::driver)},
            {"programs", in_use(p, Block::user)},
            {"most", p.most_in_use}};
}

void add_level(cli::Json& json, const Level& l)
{
    json.update({{"rms", l.rms}, {"peak", l.peak}, {"highest", l.highest}});
}

cli::Json input_json(uint32_t slot, const AiChannel& c)
{
    cli::Json json = {{"channel", slot_name("ai", slot)},
                      {"enabled", bool(c.enabled)},
                      {"waiting", c.count},
                      {"taken", c.delivered},
                      {"given_back", c.released},
                      {"lost", c.lost},
                      {"echoes", c.echoes}};
    add_level(json, c.level);
    return json;
}

cli::Json output_json(uint32_t slot, const AoChannel& c)
{
    cli::Json json = {{"channel", slot_name("ao", slot)},
                      {"enabled", bool(c.enabled)},
                      {"paused", bool(c.paused)},
                      {"frames", c.frames},
                      {"underruns", c.underruns},
                      {"full", c.full},
                      {"dropped", c.cleared}};
    add_level(json, c.level);
    return json;
}

} // namespace

std::unique_ptr<Page> read_media()
{
    auto page = std::make_unique<Page>();
    return snapshot(*page) ? std::move(page) : nullptr;
}

void print_media(const Page& page)
{
    printf("media     system %s, pools %s\n", page.sys.ready ? "started" : "stopped",
           page.vb.ready ? "started" : "stopped");
    print_binds(page);
    print_pools(page);
    print_input(page);
    print_output(page);
    print_acodec(page.acodec);
}

cli::Json media_json(const Page& page)
{
    cli::Json json = {{"system", bool(page.sys.ready)}};
    for (const char* list : {"binds", "pools", "ai", "ao"}) json[list] = cli::Json::array();
    for (const Binding& b : page.sys.binds)
        if (b.used) json["binds"].push_back(bind_json(b));
    for (uint32_t i = 0; i < kPools; ++i)
        if (page.vb.pools[i].used) json["pools"].push_back(pool_json(i, page.vb.pools[i]));
    for (uint32_t slot = 0; slot < kSlots; ++slot) {
        if (used(page.ai[slot])) json["ai"].push_back(input_json(slot, page.ai[slot]));
        if (used(page.ao[slot])) json["ao"].push_back(output_json(slot, page.ao[slot]));
    }
    return json;
}

// Bindings of a decoder are its program's own; of those the drivers see the frames that reach an output.
std::string media_dot(const Page* page)
{
    std::string out = "digraph media {\n  rankdir=LR; node [shape=box];\n";
    if (!page) return out + "}\n";
    for (uint32_t slot = 0; slot < kSlots; ++slot) {
        const AiChannel& c = page->ai[slot];
        const std::string name = slot_name("ai", slot);
        if (used(c))
            out += text("  \"mic.wav\" -> \"%s\" [label=\"%u taken, %u lost\"];\n", name.c_str(), c.delivered,
                        c.lost);
    }
    for (const Binding& b : page->sys.binds) {
        const std::string counts = text(" [label=\"%u frames, %u dropped\"]", b.frames, b.dropped);
        if (b.used)
            out += text("  \"%s\" -> \"%s\"%s;\n", name_of(b.source).c_str(), name_of(b.destination).c_str(),
                        flows(b) ? counts.c_str() : "");
    }
    for (uint32_t slot = 0; slot < kSlots; ++slot) {
        const AoChannel& c = page->ao[slot];
        if (!used(c)) continue;
        const std::string name = slot_name("ao", slot), file = speaker_file(*page, slot);
        if (c.frames > c.bound || !c.bound)
            out += text("  \"program\" -> \"%s\" [label=\"%u frames\"];\n", name.c_str(), c.frames - c.bound);
        out += text("  \"%s\" -> \"%s\" [label=\"%u under-runs\"];\n", name.c_str(),
                    file.substr(file.rfind('/') + 1).c_str(), c.underruns);
    }
    return out + "}\n";
}

} // namespace vcam
