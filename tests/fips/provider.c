/* SPDX-License-Identifier: Apache-2.0
 *
 * A FIPS provider of the tests, in one of these roles:
 *   ROLE_USABLE      offers SHA2-256 and says yes to everything
 *   ROLE_REFUSES     does not want to be loaded
 *   ROLE_SELF_TEST   fails its self test
 *   ROLE_CONFIGURED  as usable, when the configuration has the right
 *                    `module-mac`; else it says what is wrong
 */

#include <openssl/core.h>
#include <openssl/core_dispatch.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/params.h>
#include <openssl/proverr.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

/* A digest that is always the same. */

static void* new_context(void* provider)
{
    (void)provider;
    return malloc(1);
}

static void free_context(void* context)
{
    free(context);
}

static int start(void* context, const OSSL_PARAM params[])
{
    (void)context;
    (void)params;
    return 1;
}

static int update(void* context, const unsigned char* data, size_t length)
{
    (void)context;
    (void)data;
    (void)length;
    return 1;
}

static int finish(void* context,
                  unsigned char* out,
                  size_t* length,
                  size_t size)
{
    (void)context;
    if (size < 32)
        return 0;
    memset(out, 'F', 32);
    *length = 32;
    return 1;
}

static int get_digest_params(OSSL_PARAM params[])
{
    OSSL_PARAM* size = OSSL_PARAM_locate(params, OSSL_DIGEST_PARAM_SIZE);
    OSSL_PARAM* block = OSSL_PARAM_locate(params, OSSL_DIGEST_PARAM_BLOCK_SIZE);
    return (size == NULL || OSSL_PARAM_set_size_t(size, 32)) &&
           (block == NULL || OSSL_PARAM_set_size_t(block, 64));
}

typedef void (*function)(void);

static const OSSL_DISPATCH digest_functions[] = {
    {OSSL_FUNC_DIGEST_NEWCTX, (function)new_context},
    {OSSL_FUNC_DIGEST_FREECTX, (function)free_context},
    {OSSL_FUNC_DIGEST_INIT, (function)start},
    {OSSL_FUNC_DIGEST_UPDATE, (function)update},
    {OSSL_FUNC_DIGEST_FINAL, (function)finish},
    {OSSL_FUNC_DIGEST_GET_PARAMS, (function)get_digest_params},
    {0, NULL},
};

static const OSSL_ALGORITHM digests[] = {
    {"SHA2-256:SHA-256:SHA256", "provider=fips,fips=yes", digest_functions,
     NULL},
    {NULL, NULL, NULL, NULL},
};

static const OSSL_ALGORITHM* query(void* provider, int operation, int* no_cache)
{
    (void)provider;
    *no_cache = 0;
    return operation == OSSL_OP_DIGEST ? digests : NULL;
}

static int self_test(void* provider)
{
    (void)provider;
#ifdef ROLE_SELF_TEST
    return 0;
#else
    return 1;
#endif
}

static const OSSL_DISPATCH provider_functions[] = {
    {OSSL_FUNC_PROVIDER_QUERY_OPERATION, (function)query},
    {OSSL_FUNC_PROVIDER_SELF_TEST, (function)self_test},
    {0, NULL},
};

#ifdef ROLE_CONFIGURED

static OSSL_FUNC_core_get_params_fn* core_get_params;
static OSSL_FUNC_core_new_error_fn* core_new_error;
static OSSL_FUNC_core_vset_error_fn* core_vset_error;

static void take_core(const OSSL_DISPATCH* core)
{
    for (; core->function_id != 0; ++core)
        if (core->function_id == OSSL_FUNC_CORE_GET_PARAMS)
            core_get_params = OSSL_FUNC_core_get_params(core);
        else if (core->function_id == OSSL_FUNC_CORE_NEW_ERROR)
            core_new_error = OSSL_FUNC_core_new_error(core);
        else if (core->function_id == OSSL_FUNC_CORE_VSET_ERROR)
            core_vset_error = OSSL_FUNC_core_vset_error(core);
}

/* As the real module does: under the library's number for providers. */
static int fail(int reason, ...)
{
    va_list none;
    va_start(none, reason);
    core_new_error(NULL);
    core_vset_error(NULL, ERR_PACK(ERR_LIB_PROV, 0, reason), NULL, none);
    va_end(none);
    return 0;
}

/* The real module stays in memory, and once it has failed it no longer says
 * why. */
static int has_failed;

static int is_configured(const OSSL_CORE_HANDLE* handle)
{
    char* mac = NULL;
    if (has_failed)
        return fail(PROV_R_INVALID_STATE);
    has_failed = 1;
    OSSL_PARAM wanted[2];
    wanted[0] = OSSL_PARAM_construct_utf8_ptr("module-mac", &mac, 0);
    wanted[1] = OSSL_PARAM_construct_end();
    if (!core_get_params(handle, wanted) || mac == NULL)
        return fail(PROV_R_MISSING_CONFIG_DATA);
    if (strcmp(mac, "CA:FE") != 0)
        return fail(PROV_R_MODULE_INTEGRITY_FAILURE);
    has_failed = 0;
    return 1;
}

#endif

__attribute__((visibility("default"))) int OSSL_provider_init(
    const OSSL_CORE_HANDLE* handle,
    const OSSL_DISPATCH* in,
    const OSSL_DISPATCH** out,
    void** provider)
{
    *out = provider_functions;
    *provider = (void*)handle;
#ifdef ROLE_CONFIGURED
    take_core(in);
    return is_configured(handle);
#else
    (void)in;
#ifdef ROLE_REFUSES
    return 0;
#else
    return 1;
#endif
#endif
}
