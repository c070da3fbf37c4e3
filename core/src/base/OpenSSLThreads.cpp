// SPDX-License-Identifier: Apache-2.0
//
// Locks for the line of OpenSSL that has none of its own.

#include "kza_core/OpenSSLThreads.h"

#include "base/OpenSSLLine.h"

#ifndef KZA_OPENSSL_RUNS_ITSELF
#include <openssl/crypto.h>
#include <pthread.h>

#include <cstddef>
#include <vector>
#endif

namespace KzaCore
{

#ifdef KZA_OPENSSL_RUNS_ITSELF

void OpenSSLThreadSetup()
{
}

void OpenSSLThreadShutdown()
{
}

#else

namespace
{

std::vector<pthread_mutex_t>& Locks()
{
    static std::vector<pthread_mutex_t> locks;
    return locks;
}

extern "C" void LockCB(int mode, int index, const char* /*file*/, int /*line*/)
{
    pthread_mutex_t& lock = Locks()[static_cast<std::size_t>(index)];
    if ((mode & CRYPTO_LOCK) != 0)
        pthread_mutex_lock(&lock);
    else
        pthread_mutex_unlock(&lock);
}

} // namespace

void OpenSSLThreadSetup()
{
    Locks().resize(static_cast<std::size_t>(CRYPTO_num_locks()));
    for (pthread_mutex_t& lock : Locks())
        pthread_mutex_init(&lock, nullptr);
    CRYPTO_set_locking_callback(LockCB);
}

void OpenSSLThreadShutdown()
{
    CRYPTO_set_locking_callback(nullptr);
    for (pthread_mutex_t& lock : Locks())
        pthread_mutex_destroy(&lock);
    Locks().clear();
}

#endif

} // namespace KzaCore
