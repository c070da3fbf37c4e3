// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PackageKeys.h"

#include "archive/PublicKey.h"
#include "base/Bytes.h"
#include "base/Descriptor.h"
#include "base/Error.h"
#include "base/WholeTransfer.h"
#include "kza_core/OpenedFile.h"
#include "kza_core/Owner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace KzaCore
{

namespace
{

constexpr std::string_view kSuffix = ".pem";
constexpr std::size_t kMaxKey = 64 << 10;

constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

bool IsKeyName(std::string_view name)
{
    return name.size() > kSuffix.size() && name.front() != '.' &&
           name.substr(name.size() - kSuffix.size()) == kSuffix;
}

std::vector<std::string> KeyNames(int directory)
{
    std::vector<std::string> names;
    CDescriptor again(openat(directory, ".", kOpenDirectory));
    DIR* const stream = again.IsOpen() ? fdopendir(again.Get()) : nullptr;
    if (stream == nullptr)
        return names;
    again.Disown(); // the stream closes it
    while (const dirent* const entry = readdir(stream))
        if (IsKeyName(entry->d_name))
            names.emplace_back(entry->d_name);
    closedir(stream);
    std::sort(names.begin(), names.end());
    return names;
}

enum class EKey
{
    Good,
    Useless,
    Unsafe // others can put another in its place
};

EKey RefuseKey(EKey result, std::string& error, std::string reason)
{
    error = std::move(reason);
    return result;
}

// Reads the file of a key.
EKey ReadKey(const std::string& path, std::string& pem, std::string& error)
{
    COpenedFile file;
    TChangeable changeable;
    if (!OpenAndJudge(path, file, changeable))
    {
        FailBySystem(error, "it cannot be opened");
        return EKey::Useless;
    }
    if (!file.IsRegular())
        return RefuseKey(EKey::Useless, error, "it is no regular file");
    if (!changeable.empty())
        return RefuseKey(EKey::Unsafe, error, changeable.front());
    pem.resize(kMaxKey + 1);
    pem.resize(ReadWhole(file.Get(), pem.data(), pem.size()));
    if (pem.size() > kMaxKey)
        return RefuseKey(EKey::Useless, error,
                         "it is larger than " + std::to_string(kMaxKey) +
                             " bytes");
    return EKey::Good;
}

} // namespace

CPackageKeys::EResult CPackageKeys::Refuse(EResult result, std::string problem)
{
    m_keys.clear();
    m_problem = std::move(problem);
    return result;
}

CPackageKeys::EResult CPackageKeys::Read(const wxString& directory,
                                         std::vector<std::string>& passedOver)
{
    const std::string path(directory.fn_str());
    if (path.empty() || path.front() != '/')
        return Refuse(EResult::None,
                      "'" + BytesOfText(directory) + "' is no absolute path");
    const CDescriptor opened(open(path.c_str(), kOpenDirectory));
    struct stat status = {};
    if (!opened.IsOpen() || fstat(opened.Get(), &status) != 0)
    {
        FailBySystem(m_problem, "'" + path + "' cannot be opened");
        return EResult::None;
    }
    if (CanOthersChange(status))
        return Refuse(EResult::Unsafe, ChangeableText(path, status));

    for (const std::string& name : KeyNames(opened.Get()))
    {
        const std::string keyPath = path + "/" + name;
        std::string pem;
        std::string reason;
        const EKey result = ReadKey(keyPath, pem, reason);
        if (result == EKey::Unsafe)
            return Refuse(EResult::Unsafe, reason);
        TPublicKey key;
        if (result == EKey::Good)
            key = ReadPublicKey(pem, reason);
        if (key)
            m_keys.push_back(
                {name.substr(0, name.size() - kSuffix.size()), key});
        else
            passedOver.push_back("Key '" + keyPath +
                                 "' is passed over: " + reason);
    }
    if (m_keys.empty())
        return Refuse(EResult::None, "no usable key is in '" + path + "'");
    m_problem.clear();
    return EResult::Good;
}

const std::string* CPackageKeys::SignerOf(const TDigest& digest,
                                          std::string_view signature) const
{
    for (const CNamedKey& key : m_keys)
        if (IsSignature(key.key.get(), digest, signature))
            return &key.name;
    return nullptr;
}

} // namespace KzaCore
