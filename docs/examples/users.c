/* A new viewer, and a new password for the superuser. */
#include "common/accounts.h"
#include "common/usertable.h"

#include <stdio.h>

int main(void)
{
    USERTABLE_S table;
    USERTABLE_Init(
        &table); /* -1 on a device without users: an empty table */
    if (USERTABLE_AddUser(&table, "view/er", "password", 1, 0, 0, 0) < 0)
        printf("refused: the fields of the file are separated by \"/\"\n");
    if (USERTABLE_AddUser(&table, "viewer", "pass/word", 1, 0, 0, 0) < 0)
        return 1;
    for (int i = 0; i < table.count; ++i)
        printf("%s, right %d\n", table.entries[i].name,
               table.entries[i].right1);

    char name[QRN_SUPERUSER_SIZE] = "root";
    QRN_GetSuperUser(name);
    QRN_ChangeSystemPassword(name, "new");
    /* The change always returns 0; only the check shows. */
    printf("%s: %s\n", name,
           QRN_CheckSystemPassword(name, "new") ? "changed" : "unchanged");
    return 0;
}
