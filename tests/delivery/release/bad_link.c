/* Linked wrongly in several ways, each of which the check of the release file must refuse. */
#include <stdio.h>
#include <string.h>

extern int stdin_word(void);
int (*const volatile constant)(void) = stdin_word;

int stdin_word(void)
{
    char word[16] = "";
    if (scanf("%15s", word) != 1) return 0;
    return (int)strlen(word);
}

#ifdef WRITABLE_CODE
__asm__(".section .writable_code, \"awx\"\n.word 0\n.text\n");
#endif

int main(void) { return constant(); }
