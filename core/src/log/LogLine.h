// SPDX-License-Identifier: Apache-2.0
//
// One record of the log as the line that the file holds:
//   YYYY-MM-DD HH:MM:SS [pid:tid] LEVEL component: text
//
// Threads: any; an object belongs to its thread. Making a line logs nothing and
// takes a lock only to break down a new second.

#pragma once

#include "kza_core/LogLevel.h"

#include <array>
#include <cstddef>
#include <ctime>
#include <memory>
#include <string_view>

namespace KzaCore
{

/// The component of a record that names none.
inline constexpr std::wstring_view kDefaultComponent = L"kza";

/// The place in the sources where a trace record was made; null texts are shown
/// as `?`.
struct CLogPosition
{
    const char* file;
    int line;
    const char* function;
};

/// The parts of a line; its texts belong to the caller.
struct CLogEntry
{
    ELogLevel level;
    std::wstring_view component;
    std::wstring_view text;
    std::time_t time;
    const CLogPosition* position = nullptr; // shown before the text
    bool ownThread = true; // false: another thread's, shown as thread 0
    EConsole console = EConsole::Repeat;
};

/// Keeps other threads from using the C library's time zone during a fork.
/// ReleaseTimeZone() follows on the same thread, in parent and child.
void HoldTimeZone();
void ReleaseTimeZone();

class CLogLine
{
public:
    /// The source of the time stamp.
    enum class EStamp
    {
        Entry, // the entry's time
        Cached // the last stamp of this thread; takes no lock of libc
    };

    explicit CLogLine(const CLogEntry& entry, EStamp stamp = EStamp::Entry);

    CLogLine(const CLogLine&) = delete;
    CLogLine& operator=(const CLogLine&) = delete;

    /// The line with its newline; empty when there was no memory for it.
    [[nodiscard]] std::string_view Text() const { return {m_text, m_length}; }

private:
    char* Room(std::size_t size);

    // Nearly every line fits here, so that logging needs no allocation.
    std::array<char, 2048> m_small;
    std::unique_ptr<char[]> m_large;
    const char* m_text = nullptr;
    std::size_t m_length = 0;
};

/// Drops the cached identity (process and thread number) of the calling thread;
/// for a new process after a fork.
void ForgetLogIdentity();

// The parts of a line, for tests. Each writes to `out`, which has room, and
// returns the new end of the line.

/// The most bytes that one character of a text takes.
inline constexpr std::size_t kMaxBytesShown = 4;

/// Appends a text as UTF-8 that stays on its line: a line break is shown as
/// `\n`, a carriage return as `\r`, any other control character but the tab
/// as `\x` and two hexadecimal digits, so that a text can neither forge a
/// record nor steer the reader's terminal. A value that is no character is
/// shown as U+FFFD.
char* AppendShown(char* out, std::wstring_view text);

/// The same for bytes that are UTF-8 already.
char* AppendShown(char* out, std::string_view text);

} // namespace KzaCore
