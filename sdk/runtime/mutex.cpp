// Bodies of the mutex and its scoped lock.
#include "shell/qm_mutex.h"

qm_mutex::qm_mutex() : m_handle(PTHREAD_MUTEX_INITIALIZER) {}

qm_mutex::~qm_mutex() { pthread_mutex_destroy(&m_handle); }

qm_lock::qm_lock(qm_mutex& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex.m_handle); }

qm_lock::~qm_lock() { pthread_mutex_unlock(&m_mutex.m_handle); }
