// SPDX-License-Identifier: Apache-2.0
//
// The calls that each release line of OpenSSL needs at the start, for FIPS mode
// and at the end.

#include "kza_core/OpenSSLCompat.h"

#include "base/OpenSSLLine.h"

#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>

#ifdef KZA_OPENSSL_HAS_PROVIDERS
#include "base/FipsProvider.h"
#endif

namespace KzaCore
{
namespace OpenSSLCompat
{

void Initialize()
{
#ifdef KZA_OPENSSL_RUNS_ITSELF
    // The calls below, and many later ones, would read the configuration file
    // unless the first call of all declines it.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
#endif
    OPENSSL_add_all_algorithms_noconf();
    SSL_library_init();
    SSL_load_error_strings();
}

#ifdef KZA_OPENSSL_HAS_PROVIDERS

unsigned long EnterFips(const std::string& root)
{
    return EnterFipsByProvider(root, kFipsNotSupported);
}

std::string ErrorText(unsigned long code)
{
    // OpenSSL 3 has no text for this code.
    if (code == kFipsNotSupported)
        return "error:0F06D065:common libcrypto routines:FIPS_mode_set:"
               "fips mode not supported";
    return ERR_error_string(code, nullptr);
}

#else

// Before OpenSSL 3, FIPS mode is part of the library or missing: there is
// nothing to load.
unsigned long EnterFips(const std::string& /*root*/)
{
    return FIPS_mode_set(1) == 1 ? 0 : ERR_get_error();
}

std::string ErrorText(unsigned long code)
{
    return ERR_error_string(code, nullptr);
}

#endif

#ifdef KZA_OPENSSL_RUNS_ITSELF

// The calls for the old line would be wrong here: the library's own exit
// function does their work, and the compression methods would be freed twice.
void CleanUp()
{
    CONF_modules_unload(1);
#ifdef KZA_OPENSSL_HAS_PROVIDERS
    ReleaseFipsProvider();
#endif
}

#else

void CleanUp()
{
    ERR_remove_state(0);
    CONF_modules_unload(1);
    ERR_free_strings();
    EVP_cleanup();
    sk_pop_free(reinterpret_cast<_STACK*>(SSL_COMP_get_compression_methods()),
                CRYPTO_free);
    CRYPTO_cleanup_all_ex_data();
}

#endif

} // namespace OpenSSLCompat
} // namespace KzaCore
