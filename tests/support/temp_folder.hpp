// Files of a test, and a folder of its own for each case.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

// All bytes of a file; none when it cannot be read.
inline std::string read_file(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Makes the folders above the file too. Returns the path.
inline std::string write_file(const std::filesystem::path& path, std::string_view bytes)
{
    std::error_code ignored; // the test sees what could not be written
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

class TempFolder {
public:
    explicit TempFolder(const std::filesystem::path& above = std::filesystem::temp_directory_path())
    {
        std::string pattern = above / "zep.XXXXXX";
        path_ = mkdtemp(pattern.data());
    }
    ~TempFolder() { std::filesystem::remove_all(path_); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }
    std::string write(std::string_view name, std::string_view content) const
    {
        return write_file(*this / name, content);
    }
    std::string read(std::string_view name) const { return read_file(*this / name); }
    size_t entries() const
    {
        auto begin = std::filesystem::directory_iterator(path_);
        return size_t(std::distance(begin, std::filesystem::directory_iterator()));
    }

private:
    std::string path_;
};
