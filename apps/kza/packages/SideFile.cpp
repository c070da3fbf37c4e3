// SPDX-License-Identifier: Apache-2.0

#include "packages/SideFile.h"

#include "kza_core/OpenedFile.h"

#include <wx/filename.h>

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

namespace
{

struct CEncoding
{
    const char* mark;
    std::size_t markSize;
    int width; // bytes of a unit
    bool isBigEndian;
};

// Where one mark is the beginning of another, the longer one comes first. The
// last encoding has no mark and fits every text.
constexpr CEncoding kEncodings[] = {
    {"\xFF\xFE\0\0", 4, 4, false}, {"\0\0\xFE\xFF", 4, 4, true},
    {"\xFF\xFE", 2, 2, false},     {"\xFE\xFF", 2, 2, true},
    {"\xEF\xBB\xBF", 3, 1, false}, {"", 0, 1, false},
};

// The characters of a text file, from its beginning. The version line is ASCII,
// so all units outside of ASCII become one and the same value.
class CCharacters
{
public:
    static constexpr int kEnd = -1;
    static constexpr int kOther = 0x80;

    explicit CCharacters(const KzaCore::COpenedFile& file) : m_file(file)
    {
        Fill();
        DetectEncoding();
    }

    // The next character; kEnd at the end of the file, within an incomplete
    // unit, and when the file cannot be read.
    int Next()
    {
        unsigned long unit = 0;
        for (int i = 0; i < m_encoding->width; ++i)
        {
            if (m_at == m_filled && !Fill())
                return kEnd;
            const unsigned long byte = m_buffer[m_at++];
            unit = m_encoding->isBigEndian ? unit << 8 | byte
                                           : unit | byte << (8 * i);
        }
        return unit < kOther ? static_cast<int>(unit) : kOther;
    }

private:
    bool Fill()
    {
        const ssize_t size = read(m_file.Get(), m_buffer, sizeof m_buffer);
        m_at = 0;
        m_filled = size > 0 ? static_cast<std::size_t>(size) : 0;
        return m_filled > 0;
    }

    // Chooses the encoding by its mark and moves behind the mark.
    void DetectEncoding()
    {
        while (m_encoding->markSize > m_filled ||
               memcmp(m_buffer, m_encoding->mark, m_encoding->markSize) != 0)
            ++m_encoding;
        m_at = m_encoding->markSize;
    }

    const KzaCore::COpenedFile& m_file;
    unsigned char m_buffer[1 << 16];
    std::size_t m_at = 0; // in m_buffer
    std::size_t m_filled = 0;
    const CEncoding* m_encoding = kEncodings;
};

// Reads a version with one character of look-ahead.
class CVersionReader
{
public:
    explicit CVersionReader(const KzaCore::COpenedFile& file)
        : m_characters(file), m_next(m_characters.Next())
    {
    }

    // Moves behind the first "version:" at the beginning of a line; false when
    // there is none.
    bool FindVersionLine()
    {
        while (m_next != CCharacters::kEnd)
        {
            if (Skip("version:"))
                return true;
            while (m_next != CCharacters::kEnd && !IsLineEnd())
                Advance();
            while (IsLineEnd())
                Advance();
        }
        return false;
    }

    bool ReadVersion(CExtensionVersion& version)
    {
        int build = 0;
        return ReadNumber(version.major) && Skip(".") &&
               ReadNumber(version.minor) && Skip(".") &&
               ReadNumber(version.patch) && Skip("-") && ReadNumber(build);
    }

private:
    void Advance() { m_next = m_characters.Next(); }

    [[nodiscard]] bool IsLineEnd() const
    {
        return m_next == '\n' || m_next == '\r';
    }
    [[nodiscard]] bool IsSpace() const
    {
        return m_next == ' ' || m_next == '\t' || m_next == '\v' ||
               m_next == '\f';
    }
    [[nodiscard]] bool IsDigit() const
    {
        return m_next >= '0' && m_next <= '9';
    }

    // Moves over the text; false when other characters follow, where it stops.
    bool Skip(const char* text)
    {
        for (; *text != '\0' && m_next == *text; ++text)
            Advance();
        return *text == '\0';
    }

    // Reads any amount of white space, at most one sign, and digits.
    bool ReadNumber(int& number)
    {
        while (IsSpace())
            Advance();
        const bool isNegative = m_next == '-';
        if (isNegative || m_next == '+')
            Advance();
        if (!IsDigit())
            return false;
        long long value = 0;
        for (; IsDigit(); Advance())
            value = std::min<long long>(value * 10 + (m_next - '0'), INT_MAX);
        number = static_cast<int>(isNegative ? -value : value);
        return true;
    }

    CCharacters m_characters;
    int m_next;
};

} // namespace

ESideFile ReadSideFile(const wxString& path,
                       KzaCore::EOwnerRule owners,
                       CExtensionVersion& version)
{
    if (!wxFileName::FileExists(path))
        return ESideFile::Missing;
    KzaCore::COpenedFile file;
    KzaCore::TChangeable changeable;
    if (!OpenAndJudge(std::string(path.fn_str()), file, changeable) ||
        !file.IsRegular())
        return ESideFile::NoVersionLine;
    if (!Tolerate(changeable, owners))
        return ESideFile::Refused;
    CVersionReader reader(file);
    if (!reader.FindVersionLine())
        return ESideFile::NoVersionLine;
    return reader.ReadVersion(version) ? ESideFile::Good : ESideFile::Malformed;
}
