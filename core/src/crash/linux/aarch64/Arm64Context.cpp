// SPDX-License-Identifier: Apache-2.0
//
// Conversion of registers on any processor.

#include "crash/linux/aarch64/Arm64Context.h"

#include <cstring>

namespace KzaCore
{

namespace
{

// The head of each record in a signal's context. A head of zeros ends the list.
struct CRecordHead
{
    std::uint32_t kind;
    std::uint32_t size; // of the whole record
};

constexpr std::uint32_t kVectorKind = 0x46508001;

struct CVectorRecord
{
    CRecordHead head;
    std::uint32_t fpsr;
    std::uint32_t fpcr;
    std::uint8_t v[32][16];
};

static_assert(sizeof(CVectorRecord) == 528);

} // namespace

bool FindVector(const unsigned char* list,
                std::size_t size,
                CArm64Vector& vector)
{
    CRecordHead head = {};
    for (std::size_t at = 0; size - at >= sizeof(head); at += head.size)
    {
        std::memcpy(&head, list + at, sizeof(head));
        if (head.size < sizeof(head) || head.size > size - at)
            return false;
        if (head.kind != kVectorKind || head.size < sizeof(CVectorRecord))
            continue;
        CVectorRecord record;
        std::memcpy(&record, list + at, sizeof(record));
        std::memcpy(vector.v, record.v, sizeof(vector.v));
        vector.fpsr = record.fpsr;
        vector.fpcr = record.fpcr;
        return true;
    }
    return false;
}

Minidump::CContextArm64 MakeContext(const CArm64General& general,
                                    const CArm64Vector* vector)
{
    Minidump::CContextArm64 context = {};
    context.flags = Minidump::kContextArm64General;
    static_assert(sizeof(context.x) == sizeof(general.x));
    std::memcpy(context.x, general.x, sizeof(context.x));
    context.sp = general.sp;
    context.pc = general.pc;
    context.cpsr = static_cast<std::uint32_t>(general.pstate);
    if (vector == nullptr)
        return context;
    context.flags |= Minidump::kContextArm64Vector;
    context.fpsr = vector->fpsr;
    context.fpcr = vector->fpcr;
    static_assert(sizeof(context.v) == sizeof(vector->v));
    std::memcpy(context.v, vector->v, sizeof(context.v));
    return context;
}

} // namespace KzaCore
