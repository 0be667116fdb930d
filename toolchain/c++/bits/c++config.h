// Stands before the cross compiler's file of this name, which is configured for another C
// library, and takes back what this one has not. Without threads and futex <atomic> needs
// neither <string> nor <system_error>; its wait() and notify and std::mutex are gone.
#pragma GCC system_header
#include_next <bits/c++config.h>
#ifndef ZEP_CXX_CONFIG
#define ZEP_CXX_CONFIG
#undef _GLIBCXX_HAS_GTHREADS
#undef _GLIBCXX_HAVE_AT_QUICK_EXIT
#undef _GLIBCXX_HAVE_FENV_H
#undef _GLIBCXX_HAVE_LINUX_FUTEX
#undef _GLIBCXX_HAVE_QUICK_EXIT
#undef _GLIBCXX_HAVE_TIMESPEC_GET
#undef _GLIBCXX_HAVE_USELOCALE
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
#endif
