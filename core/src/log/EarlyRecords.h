// SPDX-License-Identifier: Apache-2.0
//
// Records made before the log's place is known: a start makes a handful.
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

    /// Keeps a line. When there is no room for it, counts it as refused: the
    /// first records tell more about a start that fails than the last.
    void Add(std::string_view line, const CRecordKind& kind);

    [[nodiscard]] const std::vector<CRecord>& Records() const
    {
        return m_records;
    }

    /// How many lines were refused.
    [[nodiscard]] std::uint64_t Refused() const { return m_refused; }

    /// Forgets all.
    void Clear() { *this = CEarlyRecords(); }

private:
    std::vector<CRecord> m_records;
    std::size_t m_bytes = 0;
    std::uint64_t m_refused = 0;
};

} // namespace KzaCore
