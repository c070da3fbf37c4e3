// SPDX-License-Identifier: Apache-2.0

#include "packages/SideFile.h"

#include <wx/filename.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>

namespace
{

using CFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

struct SEncoding
{
    const char* mark;
    std::size_t markSize;
    int width; // bytes of a unit
    bool isBigEndian;
};

// The longer mark first where one begins like another. The last one, without a
// mark, fits every text.
constexpr SEncoding kEncodings[] = {
    {"\xFF\xFE\0\0", 4, 4, false}, {"\0\0\xFE\xFF", 4, 4, true},
    {"\xFF\xFE", 2, 2, false},     {"\xFE\xFF", 2, 2, true},
    {"\xEF\xBB\xBF", 3, 1, false}, {"", 0, 1, false},
};

// The characters of a text file from its beginning. The version line is ASCII,
// so a unit outside of ASCII only has to differ from all that is.
class CCharacters
{
public:
    static constexpr int kEnd = -1;
    static constexpr int kOther = 0x80;

    explicit CCharacters(std::FILE* file)
        : m_file(file), m_encoding(DetectEncoding(file))
    {
    }

    // The next one; kEnd at the end, in the middle of a unit, and when the file
    // cannot be read.
    int Next()
    {
        unsigned long unit = 0;
        for (int i = 0; i < m_encoding.width; ++i)
        {
            const int byte = getc_unlocked(m_file);
            if (byte == EOF)
                return kEnd;
            const auto bits = static_cast<unsigned long>(byte);
            unit = m_encoding.isBigEndian ? unit << 8 | bits
                                          : unit | bits << (8 * i);
        }
        return unit < kOther ? static_cast<int>(unit) : kOther;
    }

private:
    // Leaves the file behind the mark.
    static const SEncoding& DetectEncoding(std::FILE* file)
    {
        char begin[4] = {};
        const std::size_t size = fread(begin, 1, sizeof begin, file);
        const SEncoding& found = *std::find_if(
            std::begin(kEncodings), std::end(kEncodings) - 1,
            [&](const SEncoding& encoding)
            {
                return encoding.markSize <= size &&
                       memcmp(begin, encoding.mark, encoding.markSize) == 0;
            });
        fseek(file, static_cast<long>(found.markSize), SEEK_SET);
        return found;
    }

    std::FILE* m_file;
    const SEncoding& m_encoding;
};

// Reads a version with one character of look-ahead.
class CVersionReader
{
public:
    explicit CVersionReader(std::FILE* file)
        : m_characters(file), m_next(m_characters.Next())
    {
    }

    // Goes behind the "version:" that a line begins with.
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

    bool ReadVersion(SExtensionVersion& version)
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

    // Goes over the text as far as it stands here.
    bool Skip(const char* text)
    {
        for (; *text != '\0' && m_next == *text; ++text)
            Advance();
        return *text == '\0';
    }

    // White space, a sign and digits, of any number each.
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

// Opens a regular file; null for anything else.
CFile OpenRegularFile(const wxString& path)
{
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const int descriptor = open(path.fn_str(), kFlags);
    if (descriptor < 0)
        return {nullptr, fclose};
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        if (std::FILE* const file = fdopen(descriptor, "rb"))
            return {file, fclose};
    close(descriptor);
    return {nullptr, fclose};
}

} // namespace

ESideFile ReadSideFile(const wxString& path, SExtensionVersion& version)
{
    if (!wxFileName::FileExists(path))
        return ESideFile::Missing;
    const CFile file = OpenRegularFile(path);
    if (!file)
        return ESideFile::NoVersionLine;
    CVersionReader reader(file.get());
    if (!reader.FindVersionLine())
        return ESideFile::NoVersionLine;
    return reader.ReadVersion(version) ? ESideFile::Good : ESideFile::Malformed;
}
