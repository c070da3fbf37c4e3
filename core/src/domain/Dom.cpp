// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Dom.h"

#include "base/Bytes.h"
#include "base/PluginWorkdir.h"
#include "domain/DomStore.h"
#include "domain/KeyObservers.h"
#include "kza_core/Owner.h"

#include <wx/debug.h>
#include <wx/log.h>

namespace KzaCore
{

namespace
{

template <typename T>
bool GetAs(const CDomStore& store, const std::string& key, T& out)
{
    bool isOfType = false;
    store.Read(key,
               [&](const DomContent& content)
               {
                   const T* const value = std::get_if<T>(&content);
                   isOfType = value != nullptr;
                   if (isOfType)
                       out = *value;
               });
    return isOfType;
}

} // namespace

bool IsSwitchedOn(const DomValue& value)
{
    return value == DomValue(true) || value == DomValue(1LL) ||
           value == DomValue(std::string("1")) ||
           value == DomValue(std::string("true"));
}

CDom* CDom::New(const char* /*name*/,
                CDom* parent,
                bool* created,
                bool reserved)
{
    wxASSERT(parent == nullptr && !reserved);
    wxUnusedVar(parent);
    wxUnusedVar(reserved);
    if (created != nullptr)
        *created = true;
    return new CDom;
}

CDom::CDom()
    : m_store(std::make_unique<CDomStore>(ClaimRoot(*this) ? this : nullptr))
{
}

CDom::~CDom() = default;

void CDom::Release()
{
    AbandonRoot(*this);
    delete this;
}

void CDom::Set(const std::string& key, const std::string& value)
{
    m_store->SetString(key, value);
}

void CDom::Set(const std::string& key, const char* value)
{
    m_store->SetString(key, value);
}

void CDom::Set(const std::string& key, bool value)
{
    m_store->SetBool(key, value);
}

void CDom::Set(const std::string& key, long long value)
{
    m_store->SetInteger(key, value);
}

void CDom::SetWx(const wxString& key, const wxString& value)
{
    m_store->SetString(BytesOfText(key), BytesOfText(value));
}

void CDom::SetWx(const wxString& key, long long value)
{
    m_store->SetInteger(BytesOfText(key), value);
}

void CDom::Remove(const std::string& key)
{
    m_store->Remove(key);
}

std::string CDom::Get(const std::string& key) const
{
    std::string value;
    GetAs(*m_store, key, value);
    return value;
}

wxString CDom::GetWxString(const wxString& key) const
{
    return TextOfBytes(Get(BytesOfText(key)));
}

bool CDom::Get(const std::string& key, std::string& out) const
{
    return GetAs(*m_store, key, out);
}

bool CDom::Get(const std::string& key, bool& out) const
{
    return GetAs(*m_store, key, out);
}

bool CDom::Get(const std::string& key, long long& out) const
{
    return GetAs(*m_store, key, out);
}

DomValue CDom::Value(const std::string& key) const
{
    DomValue value;
    m_store->Read(
        key, [&value](const DomContent& content)
        { std::visit([&value](const auto& held) { value = held; }, content); });
    return value;
}

EOwnerRule CDom::OwnerRule() const
{
    return IsSwitchedOn(Value(DomKey::kStrictOwner)) ? EOwnerRule::Refuse
                                                     : EOwnerRule::Warn;
}

std::vector<std::string> CDom::Keys(const std::string& prefix) const
{
    return m_store->Keys(prefix);
}

std::uint64_t CDom::Generation(const std::string& key)
{
    return m_store->Generation(key);
}

bool CDom::Wait(const std::string& key,
                std::chrono::milliseconds timeout,
                std::uint64_t& seen)
{
    return m_store->Wait(key, timeout, seen);
}

wxString CDom::GetPluginWorkdirWx(const wxString& plugin) const
{
    const wxString work = GetWxString(DomKey::kPathWork);
    wxString path;
    wxString error;
    if (!MakePluginWorkdir(work, plugin, OwnerRule(), path, error))
        wxLogWarning("%s", error);
    return path;
}

} // namespace KzaCore
