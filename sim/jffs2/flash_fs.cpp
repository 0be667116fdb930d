// JFFS2 partitions as folders, with errors that name the partition.
#include "sim/base/camera.hpp"
#include "sim/base/text.hpp"
#include "sim/jffs2/jffs2.hpp"

namespace vcam {

void unpack_image(const std::string& image, const Partition& p, const std::string& folder)
{
    auto problem = jffs2::unpack(image, uint32_t(p.erase_size), folder);
    if (!problem.empty()) fail("cannot mount %s: %s", p.name.c_str(), problem.c_str());
}

void sync_image(const std::string& image, const Partition& p, const std::string& folder)
{
    auto problem = jffs2::sync(image, uint32_t(p.erase_size), folder);
    if (!problem.empty()) fail("cannot write %s back: %s", p.name.c_str(), problem.c_str());
}

} // namespace vcam
