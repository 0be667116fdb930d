// A camera whose board a factory test runs on, and what of it must be as before.
#pragma once

#include "tests/support/camera.hpp"

#include <map>

inline constexpr char kPassed[] = "successful\n", kFailed[] = "failed\n";

struct Board : testing::Test {
    explicit Board(const char* model = "ZM131") : camera({"--model", model}) {}

    void pins(const std::string& plan) const { write_file(camera.state("pins"), plan); }
    // Directions, levels of outputs and multiplexing of every line. What was written to an input is not seen.
    [[nodiscard]] std::map<std::string, unsigned> registers() const
    {
        const std::string json = vcam("status " + camera.state("").string() + " --json").text;
        std::map<std::string, unsigned> words;
        std::istringstream in(json.substr(json.find("\"registers\":{") + 13));
        char colon, next = ',';
        for (std::string address; next == ',' && in.ignore() && std::getline(in, address, '"') &&
                                  in >> colon >> words[address] >> next;) {
        }
        for (auto& [address, word] : words)
            if (address.ends_with("3FC")) word &= words[address.substr(0, 7) + "400"];
        return words;
    }
    // Camera time.
    [[nodiscard]] double clock_ms() const
    {
        const std::string json = vcam("status " + camera.state("").string() + " --json").text;
        return atof(json.c_str() + json.find("\"seconds\":") + 10) * 1000;
    }
    // From now on every run finds each second line an output, some high, and pins switched to other
    // functions.
    void disturb()
    {
        for (const char* bank : {"0x2019", "0x201A", "0x201B", "0x2020", "0x2021"})
            start_ += std::string("reg -s ") + bank + "0400 0x55; reg -s " + bank + "03FC 0x36;";
        for (const char* pin : {"60", "64", "80", "B0", "E4", "114", "118"})
            start_ += std::string("reg -s 0x200F0") + (pin[2] ? "" : "0") + pin + " 0x12;";
        run("");
    }
    Outcome run(const std::string& command) { return camera.run({"sh", "-c", start_ + command}); }

    Camera camera;

private:
    std::string start_; // what the start-up script does
};
