// The audio server's messages: the first byte says how the rest is cut into pieces.
#include "factory/audio_wire.hpp"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static zep::WireReceiver receiver;
    receiver.reset();
    if (size == 0) return 0;
    const size_t step = 1 + *data;
    size_t taken = 0;
    for (std::span<const uint8_t> rest(data + 1, size - 1); !rest.empty();) {
        std::span<const uint8_t> piece = rest.first(std::min(step, rest.size()));
        rest = rest.subspan(piece.size());
        while (!piece.empty()) {
            const size_t before = piece.size();
            const auto result = receiver.take(piece);
            if (result == zep::WireReceiver::Result::fault) return 0;
            taken += before - piece.size();
            if (before == piece.size()) abort(); // it would stand still
            if (result != zep::WireReceiver::Result::message) continue;
            if (receiver.body().size() > AUDIO_WIRE_MAX_BODY || receiver.body().size() > taken) abort();
            volatile uint8_t last = receiver.body().empty() ? 0 : receiver.body().back();
            (void)last;
        }
    }
    return 0;
}
