// SPDX-License-Identifier: Apache-2.0
//
// Which line of OpenSSL is linked. No other file tests its version.

#pragma once

#include <openssl/opensslv.h>

// Since 1.1 the library initialises, locks and cleans up by itself.
#if OPENSSL_VERSION_NUMBER >= 0x10100000L
#define KZA_OPENSSL_RUNS_ITSELF
#endif

// Since 3.0 algorithms come from providers, validated ones too.
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
#define KZA_OPENSSL_HAS_PROVIDERS
#endif
