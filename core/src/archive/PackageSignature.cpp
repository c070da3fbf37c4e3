// SPDX-License-Identifier: Apache-2.0

#include "archive/PackageSignature.h"

#include "base/Error.h"
#include "base/WholeTransfer.h"
#include "kza_core/OpenedFile.h"

namespace KzaCore
{

namespace
{

// Larger than the signatures of all keys in use.
constexpr std::size_t kMaxSignature = 4096;

bool ReadSignature(const COpenedFile* file,
                   std::string& bytes,
                   std::string& error)
{
    if (file == nullptr || !file->IsOpen())
        return Fail(error, "it has no signature");
    if (!file->IsRegular())
        return Fail(error, "its signature is no regular file");
    bytes.resize(kMaxSignature + 1);
    bytes.resize(ReadWholeAt(file->Get(), 0, bytes.data(), bytes.size()));
    return bytes.size() <= kMaxSignature ||
           Fail(error, "its signature is larger than " +
                           std::to_string(kMaxSignature) + " bytes");
}

} // namespace

bool CheckSignature(const COpenedFile& package,
                    const COpenedFile* signature,
                    const CPackageKeys& keys,
                    CFileSeal& seal,
                    std::string& signer,
                    std::string& error)
{
    std::string bytes;
    if (!keys.Problem().empty())
        return Fail(error,
                    "its signature cannot be checked: " + keys.Problem());
    if (!ReadSignature(signature, bytes, error))
        return false;
    if (!package.IsRegular())
        return Fail(error, "not a regular file");
    if (!seal.Make(package, error))
        return false;
    const std::string* const found = keys.SignerOf(seal.Digest(), bytes);
    if (found == nullptr)
        return Fail(error, "its signature fits none of the keys");
    signer = *found;
    return true;
}

bool FindSigner(const wxString& file,
                const CPackageKeys& keys,
                std::string& signer,
                std::string& error)
{
    const std::string path(file.fn_str());
    COpenedFile package;
    COpenedFile signature;
    CFileSeal seal;
    if (!package.Open(path))
        return FailBySystem(error, "cannot be opened");
    (void)signature.Open(path + kSignatureSuffix);
    return CheckSignature(package, &signature, keys, seal, signer, error);
}

} // namespace KzaCore
