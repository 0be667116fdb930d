// The audio server's messages: the first byte says how the rest is cut into pieces.
#include "factory/audio_wire.hpp"
#include "fuzz/fuzz.hpp"

#include <algorithm>
#include <vector>

void try_bytes(const std::string& bytes)
{
    static zep::WireReceiver receiver;
    receiver.reset();
    if (bytes.empty()) return;
    const size_t step = size_t(1) + uint8_t(bytes[0]);
    size_t taken = 0;
    const std::vector<uint8_t> stream(bytes.begin() + 1, bytes.end());
    for (std::span<const uint8_t> rest(stream); !rest.empty();) {
        std::span<const uint8_t> piece = rest.first(std::min(step, rest.size()));
        rest = rest.subspan(piece.size());
        while (!piece.empty()) {
            const size_t before = piece.size();
            const auto result = receiver.take(piece);
            if (result == zep::WireReceiver::Result::fault) return;
            taken += before - piece.size();
            must(before != piece.size()); // it would stand still
            if (result != zep::WireReceiver::Result::message) continue;
            must(receiver.body().size() <= AUDIO_WIRE_MAX_BODY && receiver.body().size() <= taken);
            volatile uint8_t last = receiver.body().empty() ? 0 : receiver.body().back();
            (void)last;
        }
    }
}
