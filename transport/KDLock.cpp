#include "transport/KDLock.h"

#include <ctime>

KDLock::~KDLock()
{
    pthread_mutex_destroy(&mutex_);
    pthread_cond_destroy(&cond_);
}

void KDLock::lock()
{
    pthread_mutex_lock(&mutex_);
}

void KDLock::unlock()
{
    pthread_mutex_unlock(&mutex_);
}

void KDLock::wait()
{
    pthread_cond_wait(&cond_, &mutex_);
}

bool KDLock::timedWaitSecs(long secs, long u_secs)
{
    timespec deadline{};
    deadline.tv_sec = secs;
    deadline.tv_nsec = u_secs * 1000;
    return pthread_cond_timedwait(&cond_, &mutex_, &deadline) == 0;
}

void KDLock::notify()
{
    pthread_cond_signal(&cond_);
}
