/* Asks the release's C library and the account code in a root of their own, and misbehaves as the protection must
 * stop; see test_sandbox.py. */
#include "common/accounts.h"

#include <netdb.h>
#include <stdio.h>
#include <string.h>

/* Constants that hold addresses. */
static const char* const constants[] = {"one", "two"};

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

__attribute__((noinline)) static int overrun(volatile int size)
{
    char small[8];
    volatile char* at = small;
    for (int i = 0; i < size; ++i) at[i] = 'x';
    return small[0];
}

int main(int argc, char** argv)
{
    const char* what = argc > 1 ? argv[1] : "";
    if (argc == 3 && strcmp(what, "resolve") == 0) return resolve(argv[2]);
    if (argc == 4 && strcmp(what, "check") == 0) return !QRN_CheckSystemPassword(argv[2], argv[3]);
    if (argc == 4 && strcmp(what, "set") == 0) return QRN_SetSystemPassword(argv[2], argv[3]) != 0;
    if (argc == 3 && strcmp(what, "overrun") == 0) return overrun((int)strlen(argv[2])) != 'x';
    if (argc == 3 && strcmp(what, "constant") == 0) *(const char* volatile*)&constants[argc - 2] = argv[2];
    return 2;
}
