// SPDX-License-Identifier: Apache-2.0
//
// kzctl beside a service of a test's own, as an operator calls it.

#pragma once

#include "e2e/service/WaitingService.h"
#include "support/Service.h"

#include <string>
#include <vector>

namespace TestSupport
{

using Words = std::vector<std::string>;

class CKzctl
{
public:
    /// \param module  What the application is made of.
    /// \param name    Of the application.
    explicit CKzctl(const char* module = kWaitingMain,
                    const std::string& name = "kz_agent");

    [[nodiscard]] const CService& Service() const { return m_service; }

    /// A path below the executable's directory.
    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_service.Host().File(name);
    }

    /// The words that start kzctl.
    [[nodiscard]] Words CommandLine(const Words& words) const;

    /// Runs kzctl in the mounts of the service, whose pid file lies there.
    ///
    /// \param options  Further ones of the process.
    [[nodiscard]] CProcessResult Run(const Words& words,
                                     const CProcessOptions& options = {}) const;

    /// A member of the JSON that a command prints, as it stands there; all that
    /// it prints when there is no such member.
    [[nodiscard]] std::string Member(const Words& words,
                                     const std::string& name) const;

    [[nodiscard]] std::string State() const
    {
        return Member({"--json", "status"}, "state");
    }

    /// Lets other users pass to the executable's directory and read it.
    void OpenToOthers() const;

    /// Starts the service with its control socket, until `main` runs.
    [[nodiscard]] bool Start() const;

private:
    CService m_service;
};

/// Options of a process that acts as another user; for tests run by root.
CProcessOptions AsNobody();

/// Compares status and both outputs, to the letter.
void ExpectSaid(const CProcessResult& result,
                int status,
                const std::string& out,
                const std::string& err);

/// Expects a complaint of one line and this status, and nothing else.
void ExpectComplaint(const CProcessResult& result, int status);

} // namespace TestSupport
