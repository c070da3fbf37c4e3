// SPDX-License-Identifier: Apache-2.0
//
// The records that are made before the log's place is known. A normal start
// makes only a few.
//
// Threads: one at a time.

#pragma once

#include "log/ConsoleLevel.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KzaCore
{

class CEarlyRecords
{
public:
    static constexpr std::size_t kMostRecords = 1000;
    static constexpr std::size_t kMostBytes = 256 * 1024;

    struct CRecord
    {
        std::string line;
        CRecordKind kind;
    };

    /// Keeps a line. Without room for it, counts the line as refused: the first
    /// records of a failing start are more useful than the last.
    void Add(std::string_view line, const CRecordKind& kind);

    [[nodiscard]] const std::vector<CRecord>& Records() const
    {
        return m_records;
    }

    /// The number of refused lines.
    [[nodiscard]] std::uint64_t Refused() const { return m_refused; }

    /// Drops all lines and the number of refused ones.
    void Clear() { *this = CEarlyRecords(); }

private:
    std::vector<CRecord> m_records;
    std::size_t m_bytes = 0;
    std::uint64_t m_refused = 0;
};

} // namespace KzaCore
