/* Linked into the executable with all applets, and into nothing else: stands in for what the C library and the
 * compiler's library bring along and no applet reaches. Threads end by themselves, so nothing unwinds a stack; no
 * text has a floating-point number. tools/release/budget.py fails the build when something cancels a thread or
 * calculates with such numbers all the same, because it would end here. */
#include <stdlib.h>

/* Unwinding, for pthread_cancel and pthread_exit: 6 KB. */
void __aeabi_unwind_cpp_pr0(void) { abort(); }
void __aeabi_unwind_cpp_pr1(void) { abort(); }
void _Unwind_ForcedUnwind(void) { abort(); }
void _Unwind_GetCFA(void) { abort(); }
void _Unwind_Resume(void) { abort(); }

/* printf of %a, %e, %f and %g: 4 KB with the arithmetic. */
void _fpmaxtostr(void) { abort(); }
