// SPDX-License-Identifier: Apache-2.0
//
// A directory into which archives are unpacked, and the check that nothing
// came of it elsewhere.

#pragma once

#include "support/TempDir.h"

#include <string>

namespace Fuzz
{

class CSandbox
{
public:
    CSandbox();

    /// Unpacks an archive into the directory, which holds links that lead
    /// outside and inside, after a walk for its names alone; aborts when
    /// either did what it must never do.
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
