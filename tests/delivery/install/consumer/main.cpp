#include "board/cmodel.h"
#include "common/accounts.h"
#include "common/cutil_conf.h"
#include "mpi/audio/g711.h"
#include "mpi/src/mpi_sys.h"
#include "service/cutil_proc.h"
#include "upgrade/cflash.h"

#include <array>
#include <cstdio>

int main()
{
    constexpr std::array<int16_t, 1> samples{1000};
    std::array<uint8_t, 1> codes{};
    G711_EncodeA(samples.data(), codes.data(), codes.size());
    std::array<char, QRN_SUPERUSER_SIZE> user{};
    QRN_GetSuperUser(user.data());
    return std::printf("%02x %s\n", codes[0], user.data()) < 0;
}
