// SPDX-License-Identifier: Apache-2.0
//
// A directory into which archives are unpacked, and the check that unpacking
// changes nothing outside of it.

#pragma once

#include "support/TempDir.h"

#include <string>

namespace Fuzz
{

class CSandbox
{
public:
    CSandbox();

    /// Walks an archive for its names alone, then unpacks it into the
    /// directory, which holds links that lead outside and inside. Aborts when
    /// one of the two changed anything outside, left half a file, or logged
    /// anything but one reason for a refusal.
    void Unzip(const std::string& archive);

private:
    bool UnzipOnce(bool namesOnly) const;
    void Reset() const;
    void Check(bool isUnpacked) const;

    TestSupport::CTempDir m_dir;
    std::string m_archive = m_dir.File("archive");
    std::string m_dest = m_dir.File("dest");
    std::string m_secret = m_dir.File("secret");
};

} // namespace Fuzz
