// SPDX-License-Identifier: Apache-2.0

#include "packages/PackageTrust.h"

#include "base/Bytes.h"

#include "kza_core/Dom.h"

#include <wx/log.h>

#include <algorithm>
#include <string>
#include <vector>

namespace DomKey = KzaCore::DomKey;

namespace
{

// True also for a key with an empty value: a mistake in a configuration must
// not switch the check off.
bool IsSet(const KzaCore::CDom& dom, const char* key)
{
    const std::vector<std::string> keys = dom.Keys(key);
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

} // namespace

CPackageTrust::CPackageTrust(const KzaCore::CDom& dom)
    : m_dom(dom), m_areKeysNeeded(IsSet(dom, DomKey::kPackageKeys))
{
}

const KzaCore::CPackageKeys* CPackageTrust::Keys()
{
    if (!m_areKeysNeeded)
        return nullptr;
    if (!m_areKeysRead)
        ReadKeys();
    return &m_keys;
}

void CPackageTrust::ReadKeys()
{
    using KzaCore::TextOfBytes;
    m_areKeysRead = true;
    std::vector<std::string> passedOver;
    const auto result =
        m_keys.Read(m_dom.GetWxString(DomKey::kPackageKeys), passedOver);
    for (const std::string& text : passedOver)
        wxLogWarning("%s", TextOfBytes(text));
    if (result == KzaCore::CPackageKeys::EResult::Unsafe)
        wxLogError("%s", TextOfBytes(m_keys.Problem()));
}
