// SPDX-License-Identifier: Apache-2.0
//
// The public keys by which packages may be signed.
//
// A package's signature is a file whose name is the package's name with ".sig"
// appended, as `openssl dgst -sha256 -sign` makes it: ECDSA on the curve P-256,
// or RSA with 3072 bits and more.
//
// Texts are UTF-8.
//
// Threads: any, once the keys have been read.

#pragma once

#include "kza_core/Digest.h"
#include "kza_core/Export.h"

#include <wx/string.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct evp_pkey_st;

namespace KzaCore
{

/// Appended to a file's name, the name of its signature.
inline constexpr char kSignatureSuffix[] = ".sig";

class KZA_API CPackageKeys
{
public:
    enum class EResult
    {
        Good,  ///< there is a key
        None,  ///< there is no usable key, or no such directory
        Unsafe ///< others can write the directory or a key
    };

    /// Reads the keys of a directory: each `*.pem` holds one. Called once per
    /// object; before the call, or after another result than Good, every
    /// signature is refused.
    ///
    /// For a symbolic link, the permissions of its target and of the target's
    /// directory count.
    ///
    /// \param directory   An absolute path.
    /// \param passedOver  Added to: for each `*.pem` that cannot be used, a
    ///                    text that names it and says why.
    EResult Read(const wxString& directory,
                 std::vector<std::string>& passedOver);

    /// The reason why every signature is refused; empty after a good result.
    [[nodiscard]] const std::string& Problem() const { return m_problem; }

    /// The key by which a signature was made: its file name without ".pem";
    /// null when no key of these has made it. The signature must have exactly
    /// the bytes that the key makes, not one more or less.
    ///
    /// \param digest  Of the signed file.
    [[nodiscard]] const std::string* SignerOf(const TDigest& digest,
                                              std::string_view signature) const;

private:
    struct CNamedKey
    {
        std::string name;
        std::shared_ptr<evp_pkey_st> key;
    };

    EResult Refuse(EResult result, std::string problem);

    std::vector<CNamedKey> m_keys; // in the order of their names
    std::string m_problem = "no keys have been read";
};

/// Finds the key by which a file is signed. Reads the file and its signature,
/// which is in the same directory.
///
/// \param signer  Out: see CPackageKeys::SignerOf().
/// \param error   Set to the reason after a failure. The reason contains the
///                word "signature" unless the file itself cannot be read.
[[nodiscard]] KZA_API bool FindSigner(const wxString& file,
                                      const CPackageKeys& keys,
                                      std::string& signer,
                                      std::string& error);

} // namespace KzaCore
