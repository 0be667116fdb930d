// A folder of its own for each case, and the files in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace vcam::test {

class Folder {
public:
    Folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "vcam-XXXXXX").string();
        path_ = ::mkdtemp(name.data()) ? name : "";
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    [[nodiscard]] std::string operator/(std::string_view name) const
    {
        return path_ + "/" + std::string(name);
    }
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

inline std::string read(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void write(const std::string& path, std::string_view text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

} // namespace vcam::test
