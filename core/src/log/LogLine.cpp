// SPDX-License-Identifier: Apache-2.0
//
// A line is written from front to back into one buffer. Each part is appended
// by a function that takes the end of the line so far and returns the new end.
//
// Room    RoomFor() bounds the length of the line before its first byte is
//         written, so no part checks for room. Nearly every line fits into the
//         object. For a longer one memory is allocated; without memory the line
//         is empty.
// Cache   Time stamp and identity (" [pid:tid] ") together cost more than the
//         rest of the line and change seldom. Each thread caches its last ones.
//         The cache has no destructor, since a thread may log while its other
//         thread-local objects are destroyed.
// Signal  A handler may interrupt this code on its own thread. It asks for
//         EStamp::Cached, because the interrupted code may hold the locks that
//         a new stamp takes. A handler that interrupts the renewal of the stamp
//         shows the parts that are new already.
// Fork    The child has another process id, so ForgetLogIdentity() clears the
//         cached one. HoldTimeZone() keeps other threads from holding the time
//         zone's locks during the fork.

#include "log/LogLine.h"

#include "base/Mutex.h"
#include "base/ThreadId.h"

#include <wx/unichar.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <new>

#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr std::size_t kStampLength = 19; // YYYY-MM-DD HH:MM:SS
constexpr std::size_t kIdentityRoom = 48;

// Room for all parts of a line but its texts.
constexpr std::size_t kFrameRoom = 160;

// The parts of a line that change seldom, for one thread.
struct CThreadCache
{
    std::time_t second = 0;
    char stamp[kStampLength + 1] = "1970-01-01 00:00:00";
    char identity[kIdentityRoom] = {}; // " [pid:tid] "
    std::size_t identityLength = 0;
};

thread_local CThreadCache t_cache;

char* Append(char* out, std::string_view text)
{
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

char* AppendNumber(char* out, long long number)
{
    return std::to_chars(out, out + 24, number).ptr;
}

char* AppendDigits(char* out, int number, int digits)
{
    for (int i = digits - 1; i >= 0; --i, number /= 10)
        out[i] = static_cast<char>('0' + number % 10);
    return out + digits;
}

// The C library does not reset its lock on the time zone in a forked child, so
// no thread may hold that lock during a fork. All uses of the time zone here
// are under this mutex, and the forking thread takes it.
CMutex s_zoneMutex;

bool BreakDown(std::time_t second, std::tm& parts)
{
    const CLock lock(s_zoneMutex);
    return localtime_r(&second, &parts) != nullptr;
}

// Breaking the time down costs as much as the rest of the line and changes
// once a second.
void RenewStamp(CThreadCache& cache, std::time_t second)
{
    std::tm parts = {};
    if (!BreakDown(second, parts))
        return;
    char* out = AppendDigits(cache.stamp, parts.tm_year + 1900, 4);
    *out++ = '-';
    out = AppendDigits(out, parts.tm_mon + 1, 2);
    *out++ = '-';
    out = AppendDigits(out, parts.tm_mday, 2);
    *out++ = ' ';
    out = AppendDigits(out, parts.tm_hour, 2);
    *out++ = ':';
    out = AppendDigits(out, parts.tm_min, 2);
    *out++ = ':';
    AppendDigits(out, parts.tm_sec, 2);
    cache.second = second;
}

char* AppendIdentity(char* out, long thread)
{
    out = Append(out, " [");
    out = AppendNumber(out, getpid());
    *out++ = ':';
    out = AppendNumber(out, thread);
    return Append(out, "] ");
}

char* AppendFrame(char* out, const CLogEntry& entry, CLogLine::EStamp stamp)
{
    CThreadCache& cache = t_cache;
    if (stamp == CLogLine::EStamp::Entry && entry.time != cache.second)
        RenewStamp(cache, entry.time);
    out = Append(out, {cache.stamp, kStampLength});

    if (!entry.ownThread)
        return AppendIdentity(out, 0);
    if (cache.identityLength == 0)
    {
        const char* end = AppendIdentity(cache.identity, CurrentThreadId());
        cache.identityLength = static_cast<std::size_t>(end - cache.identity);
    }
    return Append(out, {cache.identity, cache.identityLength});
}

std::string_view LevelName(ELogLevel level)
{
    switch (level)
    {
    case ELogLevel::Error:
        return "ERROR ";
    case ELogLevel::Warning:
        return "WARNING ";
    case ELogLevel::Message:
        return "MESSAGE ";
    case ELogLevel::Info:
        return "INFO ";
    case ELogLevel::Verbose:
        return "VERBOSE ";
    case ELogLevel::Debug:
        return "DEBUG ";
    case ELogLevel::Trace:
        break;
    }
    return "TRACE ";
}

std::string_view OrUnknown(const char* text)
{
    return text == nullptr || *text == '\0' ? "?" : text;
}

// Lua names a chunk that was loaded from a string `[string "…"]`, with a piece
// of its text. A slash there separates no directories.
std::string_view WithoutDirectories(std::string_view file)
{
    if (file.front() == '[')
        return file;
    const std::size_t slash = file.rfind('/');
    return slash == std::string_view::npos ? file : file.substr(slash + 1);
}

char* AppendPosition(char* out, const CLogPosition& position)
{
    out = AppendShown(out, WithoutDirectories(OrUnknown(position.file)));
    *out++ = ':';
    out = AppendNumber(out, position.line);
    *out++ = ' ';
    out = AppendShown(out, OrUnknown(position.function));
    *out++ = ' ';
    return out;
}

std::size_t RoomFor(const CLogEntry& entry)
{
    std::size_t characters = entry.component.size() + entry.text.size();
    if (entry.position != nullptr)
        characters += OrUnknown(entry.position->file).size() +
                      OrUnknown(entry.position->function).size();
    return kFrameRoom + characters * kMaxBytesShown;
}

char* AppendControl(char* out, unsigned int c)
{
    *out++ = '\\';
    if (c == '\n' || c == '\r')
    {
        *out++ = c == '\n' ? 'n' : 'r';
        return out;
    }
    *out++ = 'x';
    *out++ = "0123456789abcdef"[c >> 4U];
    *out++ = "0123456789abcdef"[c & 15U];
    return out;
}

char Byte(std::uint32_t value)
{
    return static_cast<char>(static_cast<unsigned char>(value));
}

// For characters above ASCII only.
char* AppendUtf8(char* out, std::uint32_t c)
{
    if (c > 0x10ffff || (c >= 0xd800 && c <= 0xdfff))
        c = 0xfffd;
    if (c < 0x800)
    {
        *out++ = Byte(0xc0 | (c >> 6U));
        *out++ = Byte(0x80 | (c & 0x3fU));
        return out;
    }
    if (c < 0x10000)
        *out++ = Byte(0xe0 | (c >> 12U));
    else
    {
        *out++ = Byte(0xf0 | (c >> 18U));
        *out++ = Byte(0x80 | ((c >> 12U) & 0x3fU));
    }
    *out++ = Byte(0x80 | ((c >> 6U) & 0x3fU));
    *out++ = Byte(0x80 | (c & 0x3fU));
    return out;
}

} // namespace

// The lock is held from one function to the other.
void HoldTimeZone() KZA_UNCHECKED_LOCKS
{
    s_zoneMutex.Lock();
}

void ReleaseTimeZone() KZA_UNCHECKED_LOCKS
{
    s_zoneMutex.Unlock();
}

char* AppendShown(char* out, std::wstring_view text)
{
    for (const wchar_t wide : text)
    {
        const std::uint32_t c = wxUniChar(wide).GetValue();
        if ((c >= 0x20 && c < 0x7f) || c == '\t')
            *out++ = static_cast<char>(c);
        else if (c < 0xa0)
            out = AppendControl(out, c);
        else
            out = AppendUtf8(out, c);
    }
    return out;
}

char* AppendShown(char* out, std::string_view text)
{
    for (const char byte : text)
    {
        const auto c = static_cast<unsigned char>(byte);
        if ((c < 0x20 && c != '\t') || c == 0x7f)
            out = AppendControl(out, c);
        else
            *out++ = byte;
    }
    return out;
}

CLogLine::CLogLine(const CLogEntry& entry, EStamp stamp)
{
    char* out = Room(RoomFor(entry));
    if (out == nullptr)
        return;
    m_text = out;
    out = AppendFrame(out, entry, stamp);
    out = Append(out, LevelName(entry.level));
    out = AppendShown(out, entry.component.empty() ? kDefaultComponent
                                                   : entry.component);
    out = Append(out, ": ");
    if (entry.position != nullptr)
        out = AppendPosition(out, *entry.position);
    out = AppendShown(out, entry.text);
    *out++ = '\n';
    m_length = static_cast<std::size_t>(out - m_text);
}

char* CLogLine::Room(std::size_t size)
{
    if (size <= m_small.size())
        return m_small.data();
    m_large.reset(new (std::nothrow) char[size]);
    return m_large.get();
}

void ForgetLogIdentity()
{
    t_cache.identityLength = 0;
}

} // namespace KzaCore
