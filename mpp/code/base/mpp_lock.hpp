// A mutex held for a scope: the platform's only guard.
#pragma once

#include <pthread.h>

namespace zep {

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& lock) : lock_(lock) { pthread_mutex_lock(&lock_); }
    ~MutexLock() { pthread_mutex_unlock(&lock_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    // Lets others in until the condition is signalled.
    void wait(pthread_cond_t& condition) { pthread_cond_wait(&condition, &lock_); }

private:
    pthread_mutex_t& lock_;
};

} // namespace zep
