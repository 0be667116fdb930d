/* Asks the release's C library and the account code in a root of their own; see test_sandbox.py. */
#include "common/accounts.h"

#include <netdb.h>
#include <stdio.h>
#include <string.h>

static int resolve(const char* name)
{
    const struct hostent* host = gethostbyname(name);
    if (!host) {
        herror(name);
        return 1;
    }
    const unsigned char* b = (const unsigned char*)host->h_addr_list[0];
    printf("%u.%u.%u.%u\n", b[0], b[1], b[2], b[3]);
    return 0;
}

int main(int argc, char** argv)
{
    if (argc == 3 && strcmp(argv[1], "resolve") == 0) return resolve(argv[2]);
    if (argc == 4 && strcmp(argv[1], "check") == 0) return !QRN_CheckSystemPassword(argv[2], argv[3]);
    if (argc == 4 && strcmp(argv[1], "set") == 0) return QRN_SetSystemPassword(argv[2], argv[3]) != 0;
    return 2;
}
