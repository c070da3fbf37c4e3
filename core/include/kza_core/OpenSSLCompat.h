// SPDX-License-Identifier: Apache-2.0
//
// What differs between the generations of OpenSSL: locking and clean-up came
// with 1.1, FIPS mode by a provider with 3.0. No other file tests an OpenSSL
// version.
//
// Threads: the main thread, unless a function says otherwise.

#pragma once

#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/opensslv.h>
#include <openssl/ssl.h>

#include <string>

#if OPENSSL_VERSION_NUMBER < 0x10100000L
#include <pthread.h>

#include <vector>
#endif

#if OPENSSL_VERSION_NUMBER >= 0x30000000L
#include "kza_core/OpenSSLFipsProvider.h"
#endif

namespace KzaCore
{
namespace OpenSSLCompat
{

#if OPENSSL_VERSION_NUMBER < 0x30000000L

/// The error that says "this OpenSSL has no FIPS support".
inline constexpr unsigned long kFipsNotSupported = 0x0F06D065;

/// Switches the library into FIPS mode, which is compiled into it or not.
///
/// \return 0, else the first error.
inline unsigned long EnterFips(const std::string& /*root*/)
{
    return FIPS_mode_set(1) == 1 ? 0 : ERR_get_error();
}

inline void ReleaseFips()
{
}

/// The text of an error code.
inline std::string ErrorText(unsigned long code)
{
    return ERR_error_string(code, nullptr);
}

#endif

#if OPENSSL_VERSION_NUMBER < 0x10100000L

inline std::vector<pthread_mutex_t>& Locks()
{
    static std::vector<pthread_mutex_t> locks;
    return locks;
}

extern "C" inline void LockCB(int mode,
                              int index,
                              const char* /*file*/,
                              int /*line*/)
{
    pthread_mutex_t& lock = Locks()[static_cast<std::size_t>(index)];
    if ((mode & CRYPTO_LOCK) != 0)
        pthread_mutex_lock(&lock);
    else
        pthread_mutex_unlock(&lock);
}

inline void InstallLocking()
{
    Locks().resize(static_cast<std::size_t>(CRYPTO_num_locks()));
    for (pthread_mutex_t& lock : Locks())
        pthread_mutex_init(&lock, nullptr);
    CRYPTO_set_locking_callback(LockCB);
}

inline void RemoveLocking()
{
    CRYPTO_set_locking_callback(nullptr);
    for (pthread_mutex_t& lock : Locks())
        pthread_mutex_destroy(&lock);
    Locks().clear();
}

/// Frees what the library holds for the process and the calling thread.
inline void CleanUp()
{
    ERR_remove_state(0);
    CONF_modules_unload(1);
    ERR_free_strings();
    EVP_cleanup();
    sk_pop_free(reinterpret_cast<_STACK*>(SSL_COMP_get_compression_methods()),
                CRYPTO_free);
    CRYPTO_cleanup_all_ex_data();
}

#else

// The library locks by itself since 1.1.
inline void InstallLocking()
{
}
inline void RemoveLocking()
{
}

/// Frees what the library holds for the process. The other calls of the old
/// generation are gone: its exit handler does their work, and freeing the
/// compression methods here would free them twice.
inline void CleanUp()
{
    CONF_modules_unload(1);
    ReleaseFips();
}

#endif

} // namespace OpenSSLCompat
} // namespace KzaCore
