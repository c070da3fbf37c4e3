// SPDX-License-Identifier: Apache-2.0

#include "packages/PackageEvent.h"

#include "packages/PackageName.h"

#include "kza_core/Dom.h"
#include "kza_core/Time.h"

#include <wx/filename.h>
#include <wx/log.h>

namespace
{

wxLogLevelValues LevelOf(EPackageEvent outcome)
{
    const bool isGood = outcome == EPackageEvent::Installed ||
                        outcome == EPackageEvent::Removed;
    return isGood ? wxLOG_Info : wxLOG_Warning;
}

} // namespace

void CPackageEvent::Begin(const wxFileName& package)
{
    const wxString text =
        wxString::Format("%s|%s|%s", getPluginName(package), package.GetName(),
                         package.GetFullPath());
    m_event.m_text = std::string(text.utf8_str());
    m_event.SetAttributeNull(&m_event.m_text, false);
    m_event.m_timeMs = KzaCore::TimeNowMillis();
    m_event.SetAttributeNull(&m_event.m_timeMs, false);
    m_event.m_time = static_cast<std::int32_t>(m_event.m_timeMs / 1000);
    m_event.SetAttributeNull(&m_event.m_time, false);
}

void CPackageEvent::Write(KzaCore::CDom& dom, EPackageEvent outcome)
{
    m_event.m_number = static_cast<std::uint32_t>(outcome);
    m_event.SetAttributeNull(&m_event.m_number, false);
    m_event.m_severity = KzaCore::CAgentEvent::ToSeverity(LevelOf(outcome));
    m_event.SetAttributeNull(&m_event.m_severity, false);
    dom.AgentEventWrite(m_event);
}
