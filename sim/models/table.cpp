#include "sim/models/table.hpp"

namespace vcam::models {

std::span<Model* const> all()
{
    static Model* const table[] = {
        &mtd(0),       &mtd(1),       &mtd(2),     &mtd(3),         &mtd_block(3),   &watchdog(),
        &ds1339(),     &hi3516_reg(), &gpioi2c(),  &serial_port(1), &serial_port(2), &mtd(0),
        &mtd(1),       &mtd(2),       &mtd(3),     &mtd_block(3),   &watchdog(),     &media_sys(),
        &media_mmz(),  &mem(),        &media_vb(), &media_ai(),     &media_ao(),     &media_aenc(),
        &media_adec(), &media_log(),  &acodec(),
    };
    return table;
}

} // namespace vcam::models
