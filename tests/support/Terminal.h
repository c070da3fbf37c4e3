// SPDX-License-Identifier: Apache-2.0
//
// A terminal of a test's own.

#pragma once

#include <string>

namespace TestSupport
{

/// A pseudo-terminal that changes nothing of what passes through it. What the
/// test does not read is kept up to a few KiB; then writers wait.
class CTerminal
{
public:
    /// \param columns  0: unknown, as of a serial line.
    explicit CTerminal(unsigned short columns = 0);
    ~CTerminal();

    CTerminal(const CTerminal&) = delete;
    CTerminal& operator=(const CTerminal&) = delete;

    /// The end for programs, to be put in the place of a descriptor of theirs.
    [[nodiscard]] int ProgramsEnd() const { return m_program; }

    /// All that programs have written so far.
    std::string Text();

private:
    int m_reader;
    int m_program;
    std::string m_text;
};

} // namespace TestSupport
