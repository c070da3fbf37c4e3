// SPDX-License-Identifier: Apache-2.0
//
// From the request for FIPS mode to the loaded provider:
//
//   1. The module fips.so is looked for.
//   2. The configuration is looked for and read, but not yet applied.
//   3. OpenSSL is told the module's own section of it.
//   4. The module is loaded and tests itself.
//   5. The rest of a whole configuration is applied.
//
// OpenSSL would do 3 to 5 at once by itself. But when a module that the
// configuration activates fails, OpenSSL drops the reason, and the module
// answers every later load with "invalid state". The explicit load in step 4
// leaves the module's own reason as the first error.

#include "base/FipsProvider.h"

#include "base/OpenSSLLine.h"

#ifdef KZA_OPENSSL_HAS_PROVIDERS

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
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr char kModuleFile[] = "/fips.so";

// The section in the file that `openssl fipsinstall` writes.
constexpr char kInstalledSection[] = "fips_sect";

// The providers stay loaded for as long as the mode lasts.
struct CProviders
{
    OSSL_PROVIDER* fips = nullptr;
    OSSL_PROVIDER* base = nullptr;
};

CProviders s_held;

struct CFreeConf
{
    void operator()(CONF* conf) const { NCONF_free(conf); }
};
using ConfPtr = std::unique_ptr<CONF, CFreeConf>;

// The origin of the configuration.
enum class EConfiguration
{
    Named,        // by the environment
    PlacedWhole,  // for the agent
    PlacedModule, // for the agent, and about the module alone
    System,       // the host's own
};

struct CConfigurationFile
{
    EConfiguration kind;
    std::string path;
};

std::string TextOf(const char* text)
{
    return text == nullptr ? "" : text;
}

bool Exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// The first directory that holds the module, empty when none does.
std::string FindModules(const std::string& root)
{
    std::vector<std::string> directories = {TextOf(getenv("OPENSSL_MODULES"))};
    if (!root.empty())
        directories.insert(directories.end(),
                           {root + "/ossl-modules", root + "/engines"});
    directories.push_back(TextOf(OPENSSL_info(OPENSSL_INFO_MODULES_DIR)));
    for (const std::string& directory : directories)
        if (!directory.empty() && Exists(directory + kModuleFile))
            return directory;
    return {};
}

CConfigurationFile FindConfiguration(const std::string& root,
                                     const std::string& modules)
{
    if (const char* const named = getenv("OPENSSL_CONF"))
        return {EConfiguration::Named, named};
    for (const auto& [kind, name] :
         {std::pair(EConfiguration::PlacedWhole, "/openssl.cnf"),
          std::pair(EConfiguration::PlacedModule, "/fipsmodule.cnf")})
        for (const std::string& directory : {modules, root})
            if (!directory.empty() && Exists(directory + name))
                return {kind, directory + name};
    const std::unique_ptr<char, void (*)(char*)> path(
        CONF_get1_default_config_file(),
        [](char* text) { OPENSSL_free(text); });
    return {EConfiguration::System, TextOf(path.get())};
}

// The value in the syntax of the configuration, with each character escaped
// that could have a special meaning there.
std::string Escaped(std::string_view value)
{
    std::string escaped;
    for (const char c : value)
    {
        if (isalnum(static_cast<unsigned char>(c)) == 0)
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string_view BehindDot(std::string_view name)
{
    return name.substr(name.find('.') + 1);
}

// The section that a whole configuration has for the module; null when it has
// none. A missing section or entry is no error.
const char* ModuleSection(const CONF* conf)
{
    const char* found = nullptr;
    ERR_set_mark();
    const char* const start = NCONF_get_string(conf, nullptr, "openssl_conf");
    const char* const providers =
        start == nullptr ? nullptr : NCONF_get_string(conf, start, "providers");
    const STACK_OF(CONF_VALUE)* const entries =
        providers == nullptr ? nullptr : NCONF_get_section(conf, providers);
    for (int i = 0; found == nullptr && i < sk_CONF_VALUE_num(entries); i++)
    {
        const CONF_VALUE* const entry = sk_CONF_VALUE_value(entries, i);
        if (BehindDot(entry->name) == "fips")
            found = entry->value;
    }
    ERR_pop_to_mark();
    return found;
}

ConfPtr Parse(const std::string& text)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> source(
        BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
    ConfPtr conf(NCONF_new(nullptr));
    if (!source || !conf ||
        NCONF_load_bio(conf.get(), source.get(), nullptr) <= 0)
        return nullptr;
    return conf;
}

// Tells OpenSSL all settings of the section but the one that loads the module
// together with the configuration.
bool ApplyModuleSection(const CONF* conf, const char* section)
{
    std::string text = "kza = kza_start\n"
                       "[kza_start]\nproviders = kza_providers\n"
                       "[kza_providers]\nfips = kza_fips\n"
                       "[kza_fips]\n";
    const STACK_OF(CONF_VALUE)* const entries =
        NCONF_get_section(conf, section);
    for (int i = 0; i < sk_CONF_VALUE_num(entries); i++)
    {
        const CONF_VALUE* const entry = sk_CONF_VALUE_value(entries, i);
        if (BehindDot(entry->name) != "activate")
            text += entry->name + (" = " + Escaped(entry->value)) + "\n";
    }
    const ConfPtr module = Parse(text);
    return module && CONF_modules_load(module.get(), "kza", 0) > 0;
}

ConfPtr Read(const CConfigurationFile& file)
{
    ConfPtr conf(NCONF_new(nullptr));
    // A host without a configuration is no error, and an empty name means that
    // none is to be read.
    const bool isMissing =
        file.kind == EConfiguration::System && !Exists(file.path);
    if (!conf || isMissing || file.path.empty())
        return conf;
    if (NCONF_load(conf.get(), file.path.c_str(), nullptr) <= 0)
        return nullptr;
    return conf;
}

bool LoadModule(const CONF* conf, const char* section)
{
    if (section != nullptr && !ApplyModuleSection(conf, section))
        return false;
    s_held.fips = OSSL_PROVIDER_load(nullptr, "fips");
    return s_held.fips != nullptr && OSSL_PROVIDER_self_test(s_held.fips) == 1;
}

bool EnableModule()
{
    s_held.base = OSSL_PROVIDER_load(nullptr, "base");
    return s_held.base != nullptr &&
           EVP_default_properties_enable_fips(nullptr, 1) == 1;
}

bool Enter(const CConfigurationFile& file)
{
    const ConfPtr conf = Read(file);
    if (!conf)
        return false;
    if (file.kind == EConfiguration::PlacedModule)
        return LoadModule(conf.get(), kInstalledSection) && EnableModule();
    // A file that was not placed for the agent may have faults that do not
    // concern FIPS mode. OpenSSL itself passes over them, too.
    const unsigned long flags = file.kind == EConfiguration::PlacedWhole
                                    ? 0
                                    : CONF_MFLAGS_IGNORE_ERRORS;
    return LoadModule(conf.get(), ModuleSection(conf.get())) &&
           CONF_modules_load(conf.get(), nullptr, flags) > 0 && EnableModule();
}

} // namespace

unsigned long EnterFipsByProvider(const std::string& root,
                                  unsigned long noModule)
{
    ERR_clear_error();
    const std::string modules = FindModules(root);

    // The path is set for this load alone: other modules stay where the host
    // keeps them.
    if (!modules.empty())
        OSSL_PROVIDER_set_default_search_path(nullptr, modules.c_str());
    const bool entered = Enter(FindConfiguration(root, modules));
    if (!modules.empty())
        OSSL_PROVIDER_set_default_search_path(nullptr, nullptr);
    if (entered)
        return 0;

    const bool isMissing = modules.empty() && s_held.fips == nullptr;
    const unsigned long error = ERR_get_error();
    ReleaseFipsProvider();
    if (isMissing)
        return noModule;
    // A module may fail without leaving an error.
    return error != 0
               ? error
               : ERR_PACK(ERR_LIB_PROV, 0, PROV_R_SELF_TEST_POST_FAILURE);
}

void ReleaseFipsProvider()
{
    if (s_held.base != nullptr)
        OSSL_PROVIDER_unload(s_held.base);
    if (s_held.fips != nullptr)
        OSSL_PROVIDER_unload(s_held.fips);
    s_held = {};
}

} // namespace KzaCore

#endif
