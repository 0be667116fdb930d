// A driver that has requests and nothing to read or write.
#pragma once

#include "sim/models/model.hpp"

#include <cerrno>

namespace vcam::models {

class RequestDevice : public Model {
public:
    using Model::Model;
    bool has_bytes() const final { return false; }
    ssize_t read(int, void*, size_t) final { return -EINVAL; }
    ssize_t write(int, const void*, size_t) final { return -EINVAL; }
    ssize_t pread(int, void*, size_t, int64_t) final { return -EINVAL; }
    ssize_t pwrite(int, const void*, size_t, int64_t) final { return -EINVAL; }
    int64_t seek(int, int64_t, int) final { return -ESPIPE; }

protected:
    ~RequestDevice() = default;
};

} // namespace vcam::models
