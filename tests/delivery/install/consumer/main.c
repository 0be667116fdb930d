#include "board/cmodel.h"
#include "common/accounts.h"
#include "common/cutil_conf.h"
#include "mpi/audio/g711.h"
#include "mpi/src/mpi_sys.h"
#include "service/cutil_proc.h"
#include "upgrade/cflash.h"

#include <stdio.h>

int main(void)
{
    int16_t sample = 1000;
    uint8_t code = 0;
    G711_EncodeA(&sample, &code, 1);
    char user[QRN_SUPERUSER_SIZE] = "";
    QRN_GetSuperUser(user);
    return printf("%02x %s\n", code, user) < 0;
}
