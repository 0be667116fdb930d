// A folder of its own for each test, and whole-file helpers.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class TempFolder {
public:
    TempFolder()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "zep.XXXXXX";
        path_ = mkdtemp(pattern.data());
    }
    ~TempFolder() { std::filesystem::remove_all(path_); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    std::string write(const std::string& name, const std::string& content) const
    {
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }
    std::string read(const std::string& name) const
    {
        std::ifstream file(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    size_t entries() const
    {
        auto begin = std::filesystem::directory_iterator(path_);
        return size_t(std::distance(begin, std::filesystem::directory_iterator()));
    }

private:
    std::string path_;
};
