/* Misbehaves as its argument says; the protection must end it: "constant", "stack". */
#include <stdio.h>
#include <string.h>

/* Where the compiler puts constants that hold addresses. */
static const char* volatile constant __attribute__((section(".data.rel.ro"))) = "";

__attribute__((noinline)) static int overrun(const char* text)
{
    char small[8];
    strcpy(small, text);
    return small[0];
}

int main(int argc, char** argv)
{
    if (argc < 2) return constant[0];
    if (strcmp(argv[1], "constant") == 0) constant = argv[1];
    if (strcmp(argv[1], "stack") == 0) overrun("far longer than the eight bytes that it is given");
    puts("not stopped");
    return 1;
}
