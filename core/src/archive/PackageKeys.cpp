// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PackageKeys.h"

#include "archive/PublicKey.h"
#include "archive/UnzipPlan.h"
#include "base/Bytes.h"
#include "base/Descriptor.h"
#include "base/Error.h"
#include "base/Owner.h"
#include "base/RealPath.h"
#include "base/WholeTransfer.h"

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
constexpr int kOpenKey =
    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

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

// The file of one key.
class CKeyFile
{
public:
    enum class EResult
    {
        Good,
        Useless,
        Unsafe // others can write it
    };

    /// \param directory  Open; the file may be a link in it.
    /// \param path       Of the file.
    CKeyFile(int directory, std::string path, const std::string& name)
        : m_path(std::move(path)),
          m_file(openat(directory, name.c_str(), kOpenKey))
    {
    }

    EResult Read();

    [[nodiscard]] const std::string& Pem() const { return m_pem; }

    /// The reason, after another result than Good.
    [[nodiscard]] const std::string& Reason() const { return m_reason; }

private:
    EResult FollowLink();
    EResult Refuse(EResult result, std::string reason);
    EResult RefuseBySystem();

    std::string m_path;
    CDescriptor m_file;
    std::string m_pem;
    std::string m_reason;
};

CKeyFile::EResult CKeyFile::Refuse(EResult result, std::string reason)
{
    m_reason = std::move(reason);
    return result;
}

CKeyFile::EResult CKeyFile::RefuseBySystem()
{
    FailBySystem(m_reason, "it cannot be opened");
    return EResult::Useless;
}

// Opens the target of a link. The target's directory must be safe as well,
// because a user who can write it can put another key there.
CKeyFile::EResult CKeyFile::FollowLink()
{
    const std::string real = RealPath(m_path);
    if (real.empty())
        return RefuseBySystem();
    const std::string_view above = ParentOf(real);
    const std::string parent = above.empty() ? "/" : std::string(above);
    const CDescriptor directory(open(parent.c_str(), kOpenDirectory));
    struct stat status = {};
    if (!directory.IsOpen() || fstat(directory.Get(), &status) != 0)
        return RefuseBySystem();
    if (CanOthersChange(status))
        return Refuse(EResult::Unsafe, ChangeableText(parent, status));
    const std::string name = real.substr(above.size() + 1);
    m_file = CDescriptor(openat(directory.Get(), name.c_str(), kOpenKey));
    m_path = real;
    return EResult::Good;
}

CKeyFile::EResult CKeyFile::Read()
{
    if (!m_file.IsOpen() && errno == ELOOP)
    {
        const EResult result = FollowLink();
        if (result != EResult::Good)
            return result;
    }
    struct stat status = {};
    if (!m_file.IsOpen() || fstat(m_file.Get(), &status) != 0)
        return RefuseBySystem();
    if (!S_ISREG(status.st_mode))
        return Refuse(EResult::Useless, "it is no regular file");
    if (CanOthersChange(status))
        return Refuse(EResult::Unsafe, ChangeableText(m_path, status));
    m_pem.resize(kMaxKey + 1);
    m_pem.resize(ReadWhole(m_file.Get(), m_pem.data(), m_pem.size()));
    if (m_pem.size() > kMaxKey)
        return Refuse(EResult::Useless, "it is larger than " +
                                            std::to_string(kMaxKey) + " bytes");
    return EResult::Good;
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
        CKeyFile file(opened.Get(), keyPath, name);
        const CKeyFile::EResult result = file.Read();
        if (result == CKeyFile::EResult::Unsafe)
            return Refuse(EResult::Unsafe, file.Reason());
        std::string reason = file.Reason();
        TPublicKey key;
        if (result == CKeyFile::EResult::Good)
            key = ReadPublicKey(file.Pem(), reason);
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
