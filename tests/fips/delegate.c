/* SPDX-License-Identifier: Apache-2.0
 *
 * A FIPS provider of the tests whose algorithms work: it offers those of the
 * default provider, which it loads for itself, as validated ones.
 */

#include <openssl/core.h>
#include <openssl/core_dispatch.h>
#include <openssl/crypto.h>
#include <openssl/provider.h>

#include <stddef.h>

enum
{
    MOST_OPERATIONS = OSSL_OP__HIGHEST + 1,
    MOST_ALGORITHMS = 256
};

static OSSL_PROVIDER* default_provider;

static const OSSL_ALGORITHM* query(void* provider, int operation, int* no_cache)
{
    static OSSL_ALGORITHM offered[MOST_OPERATIONS][MOST_ALGORITHMS];
    (void)provider;
    /* Key formats are the base provider's. */
    if (operation == OSSL_OP_ENCODER || operation == OSSL_OP_DECODER ||
        operation == OSSL_OP_STORE || operation >= MOST_OPERATIONS)
        return NULL;
    const OSSL_ALGORITHM* there =
        OSSL_PROVIDER_query_operation(default_provider, operation, no_cache);
    OSSL_ALGORITHM* here = offered[operation];
    for (int i = 0; there != NULL && there[i].algorithm_names != NULL &&
                    i < MOST_ALGORITHMS - 1;
         ++i)
    {
        here[i] = there[i];
        here[i].property_definition = "provider=fips,fips=yes";
    }
    return here;
}

static int self_test(void* provider)
{
    (void)provider;
    return 1;
}

typedef void (*function)(void);

static const OSSL_DISPATCH provider_functions[] = {
    {OSSL_FUNC_PROVIDER_QUERY_OPERATION, (function)query},
    {OSSL_FUNC_PROVIDER_SELF_TEST, (function)self_test},
    {0, NULL},
};

__attribute__((visibility("default"))) int OSSL_provider_init(
    const OSSL_CORE_HANDLE* handle,
    const OSSL_DISPATCH* in,
    const OSSL_DISPATCH** out,
    void** provider)
{
    (void)handle;
    (void)in;
    OSSL_LIB_CTX* own = OSSL_LIB_CTX_new();
    default_provider = OSSL_PROVIDER_load(own, "default");
    if (default_provider == NULL)
        return 0;
    /* The algorithms get what they would get there. */
    *provider = OSSL_PROVIDER_get0_provider_ctx(default_provider);
    *out = provider_functions;
    return 1;
}
