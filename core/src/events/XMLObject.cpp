// SPDX-License-Identifier: Apache-2.0

#include "kza_core/XMLObject.h"

#include <algorithm>

namespace KzaCore
{

XMLObject::~XMLObject() = default;

void XMLObject::SetAttributeNull(const void* attribute, bool isNull)
{
    const auto found = std::find(m_present.begin(), m_present.end(), attribute);
    const bool wasNull = found == m_present.end();
    if (isNull && !wasNull)
        m_present.erase(found);
    else if (!isNull && wasNull)
        m_present.push_back(attribute);
}

bool XMLObject::IsAttributeNull(const void* attribute) const
{
    return std::find(m_present.begin(), m_present.end(), attribute) ==
           m_present.end();
}

} // namespace KzaCore
