// Devices of one's own that a new camera gets.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/base/device_file.hpp"

#include <string>
#include <vector>

namespace vcam {

class NewDevices {
public:
    // The value of an option. Throws with what is wrong with the file.
    void add(const std::string& file);
    [[nodiscard]] std::vector<std::string> names() const; // each once
    // The files, and of each device the folder in which they stand.
    void lay(const Camera& camera) const;

private:
    struct Given {
        std::string file;
        device_file::Device device;
        std::string content; // as it was judged; the camera that is replaced may hold the file
    };
    std::vector<Given> given_;
};

} // namespace vcam
