// The locale layer of a C library without locale objects: the classic locale only.
#ifndef ZEP_CXX_LOCALE
#define ZEP_CXX_LOCALE
#pragma GCC system_header
#include <clocale>
#define _GLIBCXX_NUM_CATEGORIES 0
namespace std {
_GLIBCXX_BEGIN_NAMESPACE_VERSION
typedef int* __c_locale;

inline int __convert_from_v(const __c_locale&, char* out, const int size, const char* format, ...)
{
    __builtin_va_list arguments;
    __builtin_va_start(arguments, format);
    const int length = __builtin_vsnprintf(out, size, format, arguments);
    __builtin_va_end(arguments);
    return length;
}
_GLIBCXX_END_NAMESPACE_VERSION
} // namespace std
#endif
