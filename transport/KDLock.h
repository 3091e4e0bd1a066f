#pragma once
// A mutex with a condition variable; wait and timedWaitSecs are called with the mutex held.
#include <pthread.h>

class KDLock {
public:
    KDLock() = default;
    ~KDLock();
    KDLock(const KDLock&) = delete;
    KDLock& operator=(const KDLock&) = delete;

    void lock();
    void unlock();
    void wait();
    // Waits until the absolute real-time deadline secs + u_secs; true when woken.
    bool timedWaitSecs(long secs, long u_secs);
    void notify();

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond_ = PTHREAD_COND_INITIALIZER;
};
