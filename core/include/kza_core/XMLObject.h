// SPDX-License-Identifier: Apache-2.0
//
// Base of records whose attributes may be null.
//
// Threads: one object belongs to one thread at a time.

#pragma once

#include "kza_core/Export.h"

#include <vector>

namespace KzaCore
{

class KZA_API XMLObject
{
public:
    virtual ~XMLObject();

    /// Marks an attribute as null or as present.
    ///
    /// \param attribute  Address of the attribute inside this object; any
    ///                   other address is a fault of ours.
    void SetAttributeNull(const void* attribute, bool isNull);

    /// True until the attribute was marked as present.
    [[nodiscard]] bool IsAttributeNull(const void* attribute) const;

protected:
    XMLObject() = default;
    XMLObject(const XMLObject&) = delete;
    XMLObject& operator=(const XMLObject&) = delete;

private:
    std::vector<const void*> m_present;
};

} // namespace KzaCore
