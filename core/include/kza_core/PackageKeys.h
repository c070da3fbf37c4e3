// SPDX-License-Identifier: Apache-2.0
//
// The public keys by which packages may be signed.
//
// A package's signature is the file of its name with ".sig" appended, as
// `openssl dgst -sha256 -sign` makes it: ECDSA on the curve P-256, or RSA with
// 3072 bits and more.
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

    /// Reads the keys of a directory: each `*.pem` holds one. Once per object;
    /// without it, or without a good result, every signature is refused.
    ///
    /// A link is judged by what it leads to, the directory there included.
    ///
    /// \param directory   An absolute path.
    /// \param passedOver  Added to: for each `*.pem` that cannot be used, a
    ///                    text that names it and says why.
    EResult Read(const wxString& directory,
                 std::vector<std::string>& passedOver);

    /// Why every signature is refused; empty after a good result.
    [[nodiscard]] const std::string& Problem() const { return m_problem; }

    /// The key by which a signature was made: its file name without ".pem",
    /// null when it was none of these. The signature counts only when it is
    /// exactly what the key makes, not one byte more or less.
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

/// Finds the key by which a file is signed: reads the file, and its signature
/// beside it.
///
/// \param signer  Out: see CPackageKeys::SignerOf().
/// \param error   Set to the reason after a failure, which has the word
///                "signature" when it is not that the file cannot be read.
[[nodiscard]] KZA_API bool FindSigner(const wxString& file,
                                      const CPackageKeys& keys,
                                      std::string& signer,
                                      std::string& error);

} // namespace KzaCore
