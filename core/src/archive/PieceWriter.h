// SPDX-License-Identifier: Apache-2.0
//
// Writes a file piece by piece on a helper thread, so that the caller can make
// the next piece while the one before is written.
//
// Threads: one object belongs to one thread. The helper thread takes no signal
// and has ended when Finish() or the destructor returns. Where the system gives
// no thread, the caller's thread writes the pieces.

#pragma once

#include "base/Mutex.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

namespace KzaCore
{

/// Writes all bytes to a file.
///
/// \param error  Set to the reason after a failure.
[[nodiscard]] bool WriteAll(int file,
                            const unsigned char* bytes,
                            std::size_t size,
                            std::string& error);

class CPieceWriter
{
public:
    static constexpr std::size_t kPieceSize = 512 << 10;
    static constexpr std::size_t kBufferSize = 2 * kPieceSize;

    /// \param file    Open for writing, not owned.
    /// \param buffer  kBufferSize bytes, not owned; both outlive the object.
    CPieceWriter(int file, unsigned char* buffer);
    ~CPieceWriter();

    CPieceWriter(const CPieceWriter&) = delete;
    CPieceWriter& operator=(const CPieceWriter&) = delete;

    /// Waits for a free piece and returns it, kPieceSize bytes large; null once
    /// a write has failed.
    [[nodiscard]] unsigned char* NextPiece();

    /// Writes the first `size` bytes of what NextPiece() returned.
    void Write(std::size_t size);

    /// Waits until all pieces are written.
    ///
    /// \param crc    Out: the CRC-32 of all pieces.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool Finish(std::uint32_t& crc, std::string& error);

private:
    struct CPiece
    {
        unsigned char* bytes = nullptr;
        std::size_t size = 0;
        // Guarded by m_mutex. A full piece belongs to the helper thread, an
        // empty one to the caller's.
        bool isFull = false;
    };

    void Start();
    void Join();
    void Run();
    bool WritePiece(const CPiece& piece);

    const int m_file;
    CPiece m_pieces[2];
    int m_next = 0; // the piece to be filled next

    CMutex m_mutex;
    std::condition_variable m_changed;
    bool m_isLast KZA_GUARDED_BY(m_mutex) = false;
    bool m_failed KZA_GUARDED_BY(m_mutex) = false;

    // Used by the helper thread alone until it has been joined.
    std::uint32_t m_crc = 0;
    std::string m_error;
    std::thread m_thread;
};

} // namespace KzaCore
