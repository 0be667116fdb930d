// What the fuzz programs share: a program is a table of targets, driver.cpp runs the one that is named.
#pragma once

#include "fuzz/outside.hpp"

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct Target {
    const char* name;
    void (*try_bytes)(std::string_view bytes);
    size_t most = 512;          // bytes of an input
    const char* like = nullptr; // the target whose seeds and words it has; null: its own
};

extern const std::vector<Target> kTargets;

// The bytes as they come out of the input's front.
class Input {
public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}
    uint8_t byte() { return rest_.empty() ? 0 : uint8_t(take(1)[0]); }
    std::string_view take(size_t size)
    {
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    [[nodiscard]] std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

// A copy exactly as large, so that a byte too many is caught.
inline std::vector<uint8_t> exactly(std::string_view bytes) { return {bytes.begin(), bytes.end()}; }
