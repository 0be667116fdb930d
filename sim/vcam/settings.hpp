// The camera's /etc while the camera is off: what the JFFS2 of its flash holds.
#pragma once

#include "sim/base/camera.hpp"

namespace vcam {

class SettingsFolder {
public:
    explicit SettingsFolder(const Camera& camera); // throws
    [[nodiscard]] const std::string& path() const { return folder_.path(); }
    void write_back(); // throws

private:
    const Camera& camera_;
    ScratchFolder folder_;
};

// Every "key=value" line of every file below a folder: "file: key" to value. Other lines by their number.
std::map<std::string, std::string> read_settings(const std::string& folder);

} // namespace vcam
