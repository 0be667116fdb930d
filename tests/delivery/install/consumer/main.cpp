// The same program as C++.
#include "main.c"
