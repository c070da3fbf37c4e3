// SPDX-License-Identifier: Apache-2.0
//
// Looks into a dump the way its format says.

#pragma once

#include "crash/MinidumpFormat.h"
#include "support/TempDir.h"

#include <cstring>
#include <string>
#include <vector>

namespace TestSupport
{

class CDumpReader
{
public:
    explicit CDumpReader(const std::string& path) : m_bytes(ReadFile(path)) {}

    template <typename T>
    [[nodiscard]] T At(std::uint64_t rva) const
    {
        T value = {};
        if (rva + sizeof(T) <= m_bytes.size())
            std::memcpy(&value, m_bytes.data() + rva, sizeof(T));
        return value;
    }

    [[nodiscard]] KzaCore::Minidump::CHeader Header() const
    {
        return At<KzaCore::Minidump::CHeader>(0);
    }

    [[nodiscard]] std::size_t Size() const { return m_bytes.size(); }

    [[nodiscard]] KzaCore::Minidump::CLocation Stream(
        KzaCore::Minidump::EStream type) const
    {
        using KzaCore::Minidump::CDirectory;
        const auto header = Header();
        for (std::uint32_t i = 0; i < header.streamCount; i++)
        {
            const auto entry =
                At<CDirectory>(header.directoryRva + i * sizeof(CDirectory));
            if (entry.type == type)
                return entry.location;
        }
        return {0, 0};
    }

    [[nodiscard]] std::string Bytes(KzaCore::Minidump::CLocation place) const
    {
        return place.rva + std::uint64_t{place.size} <= m_bytes.size()
                   ? m_bytes.substr(place.rva, place.size)
                   : std::string();
    }

    /// A stream of text, without a zero at its end.
    [[nodiscard]] std::string Text(KzaCore::Minidump::EStream type) const
    {
        std::string text = Bytes(Stream(type));
        while (!text.empty() && text.back() == '\0')
            text.pop_back();
        return text;
    }

    [[nodiscard]] std::string Note() const
    {
        return Text(KzaCore::Minidump::EStream::CommentA);
    }

    /// The value of a line `key: value` of the note.
    [[nodiscard]] std::string NoteValue(const std::string& key) const
    {
        const std::string text = "\n" + Note();
        const std::string mark = "\n" + key + ": ";
        const std::size_t at = text.find(mark);
        if (at == std::string::npos)
            return {};
        const std::size_t from = at + mark.size();
        return text.substr(from, text.find('\n', from) - from);
    }

    /// A list: a count and the entries.
    template <typename T>
    [[nodiscard]] std::vector<T> List(KzaCore::Minidump::EStream type) const
    {
        const auto place = Stream(type);
        std::vector<T> entries;
        const auto count = At<std::uint32_t>(place.rva);
        for (std::uint32_t i = 0; i < count && place.rva != 0; i++)
            entries.push_back(At<T>(place.rva + sizeof(count) + i * sizeof(T)));
        return entries;
    }

    /// A string of the format; characters beyond ASCII become '?'.
    [[nodiscard]] std::string String(std::uint32_t rva) const
    {
        std::string text;
        const auto bytes = At<std::uint32_t>(rva);
        for (std::uint32_t i = 0; i < bytes; i += 2)
        {
            const auto unit = At<std::uint16_t>(rva + 4 + i);
            text += unit < 0x80 ? static_cast<char>(unit) : '?';
        }
        return text;
    }

    /// Is this text anywhere in the file?
    [[nodiscard]] bool Holds(const std::string& text) const
    {
        return m_bytes.find(text) != std::string::npos;
    }

private:
    std::string m_bytes;
};

} // namespace TestSupport
