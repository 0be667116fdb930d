// Writes JSON objects and arrays, indented.
#pragma once

#include <cstdint>
#include <string>

namespace fwpkg {

class Json {
public:
    void open(const char* key, char bracket); // '{' or '['; no key inside an array
    void close(char bracket);
    void text(const char* key, const std::string& value);
    void number(const char* key, int64_t value);
    void boolean(const char* key, bool value);
    [[nodiscard]] const std::string& str() const { return out_; }

private:
    void item(const char* key);

    std::string out_;
    int depth_ = 0;
    bool first_ = true;
};

} // namespace fwpkg
