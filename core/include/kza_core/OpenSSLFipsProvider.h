// SPDX-License-Identifier: Apache-2.0
//
// FIPS mode where it is a provider: a module that the host's operator places,
// with a configuration that its installation wrote. Included by
// OpenSSLCompat.h alone, which knows when this generation is the linked one.
//
// Looked for in `ossl-modules` and `engines` under the installation's root:
//   fips.so         the module
//   openssl.cnf     a whole configuration, or else
//   fipsmodule.cnf  what `openssl fipsinstall` writes
// The configuration may also stand in the root itself. OPENSSL_MODULES and
// OPENSSL_CONF of the environment go before all of these.
//
// Threads: the main thread, before others exist and after they have ended.

#pragma once

#include <openssl/bio.h>
#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/proverr.h>
#include <openssl/provider.h>

#include <cctype>
#include <cstdlib>
#include <memory>
#include <string>

#include <unistd.h>

namespace KzaCore
{
namespace OpenSSLCompat
{

/// The error that says "this OpenSSL has no FIPS support", as the generation
/// packs it that has such an error.
inline constexpr unsigned long kFipsNotSupported = 0x0F06D065;

namespace FipsDetail
{

// The providers stay loaded for as long as the mode lasts.
struct Providers
{
    OSSL_PROVIDER* fips = nullptr;
    OSSL_PROVIDER* base = nullptr;
};

inline Providers& Held()
{
    static Providers held;
    return held;
}

inline bool Exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// The directory beside the libraries that holds the module; empty when there
// is none or the environment names one.
inline std::string PlacedModules(const std::string& root)
{
    if (getenv("OPENSSL_MODULES") != nullptr)
        return {};
    for (const char* const name : {"ossl-modules", "engines"})
    {
        std::string directory = root + "/" + name;
        if (Exists(directory + "/fips.so"))
            return directory;
    }
    return {};
}

inline bool HostHasModule()
{
    const char* directory = getenv("OPENSSL_MODULES");
    if (directory == nullptr)
        directory = OPENSSL_info(OPENSSL_INFO_MODULES_DIR);
    return directory != nullptr && Exists(std::string(directory) + "/fips.so");
}

inline std::string PlacedFile(const std::string& root,
                              const std::string& modules,
                              const char* name)
{
    for (const std::string& directory : {modules, root})
    {
        if (directory.empty())
            continue; // the environment names it
        std::string path = directory + "/" + name;
        if (Exists(path))
            return path;
    }
    return {};
}

// As the configuration's syntax wants a path: no character of it means
// anything else.
inline std::string Escaped(const std::string& path)
{
    std::string escaped;
    for (const char c : path)
    {
        if (isalnum(static_cast<unsigned char>(c)) == 0 && c != '/')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// What the installation of the module wrote describes the module alone; this
// is the frame that a whole configuration has around it.
inline bool LoadModuleConfiguration(const std::string& path)
{
    const std::string text = "kza = kza_start\n.include = " + Escaped(path) +
                             "\n[kza_start]\nproviders = kza_providers\n"
                             "[kza_providers]\nfips = fips_sect\n";
    const std::unique_ptr<BIO, decltype(&BIO_free)> source(
        BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
    const std::unique_ptr<CONF, decltype(&NCONF_free)> conf(NCONF_new(nullptr),
                                                            NCONF_free);
    return source && conf &&
           NCONF_load_bio(conf.get(), source.get(), nullptr) > 0 &&
           CONF_modules_load(conf.get(), "kza", 0) > 0;
}

inline bool LoadConfiguration(const std::string& root,
                              const std::string& modules)
{
    if (getenv("OPENSSL_CONF") != nullptr)
        return true;
    const std::string whole = PlacedFile(root, modules, "openssl.cnf");
    if (!whole.empty())
        return CONF_modules_load_file(whole.c_str(), nullptr, 0) > 0;
    const std::string module = PlacedFile(root, modules, "fipsmodule.cnf");
    return module.empty() || LoadModuleConfiguration(module);
}

inline bool LoadProviders(const std::string& root, const std::string& modules)
{
    Providers& held = Held();
    if (!modules.empty() && !LoadConfiguration(root, modules))
        return false;
    held.fips = OSSL_PROVIDER_load(nullptr, "fips");
    if (held.fips == nullptr || OSSL_PROVIDER_self_test(held.fips) != 1)
        return false;
    held.base = OSSL_PROVIDER_load(nullptr, "base");
    return held.base != nullptr &&
           EVP_default_properties_enable_fips(nullptr, 1) == 1;
}

} // namespace FipsDetail

/// Leaves FIPS mode's providers; nothing of OpenSSL may be in use any more.
inline void ReleaseFips()
{
    FipsDetail::Providers& held = FipsDetail::Held();
    if (held.base != nullptr)
        OSSL_PROVIDER_unload(held.base);
    if (held.fips != nullptr)
        OSSL_PROVIDER_unload(held.fips);
    held = {};
}

/// Makes every algorithm that is fetched by default a validated one.
///
/// Random generators made before stay where they are.
///
/// \param root  Directory of the installation, above its libraries.
///
/// \return 0, else the first error, kFipsNotSupported where there is no
///         module to load.
inline unsigned long EnterFips(const std::string& root)
{
    ERR_clear_error();
    const std::string modules = FipsDetail::PlacedModules(root);

    // For this load alone: other modules are where the host has them.
    if (!modules.empty())
        OSSL_PROVIDER_set_default_search_path(nullptr, modules.c_str());
    const bool loaded = FipsDetail::LoadProviders(root, modules);
    if (!modules.empty())
        OSSL_PROVIDER_set_default_search_path(nullptr, nullptr);
    if (loaded)
        return 0;

    const bool refused = FipsDetail::Held().fips != nullptr;
    const unsigned long error = ERR_get_error();
    ReleaseFips();
    if (!refused && modules.empty() && !FipsDetail::HostHasModule())
        return kFipsNotSupported;
    // A module may say no without a word.
    return error != 0
               ? error
               : ERR_PACK(ERR_LIB_PROV, 0, PROV_R_SELF_TEST_POST_FAILURE);
}

/// The text of an error code.
inline std::string ErrorText(unsigned long code)
{
    // This generation has no name for it.
    if (code == kFipsNotSupported)
        return "error:0F06D065:common libcrypto routines:FIPS_mode_set:"
               "fips mode not supported";
    return ERR_error_string(code, nullptr);
}

} // namespace OpenSSLCompat
} // namespace KzaCore
