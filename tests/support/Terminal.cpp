// SPDX-License-Identifier: Apache-2.0

#include "support/Terminal.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace TestSupport
{

CTerminal::CTerminal(unsigned short columns)
    : m_reader(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)),
      m_program(-1)
{
    std::array<char, 64> name{};
    if (m_reader < 0 || grantpt(m_reader) != 0 || unlockpt(m_reader) != 0 ||
        ptsname_r(m_reader, name.data(), name.size()) != 0)
        throw std::runtime_error("no pseudo-terminal");
    m_program = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings = {};
    if (m_program < 0 || tcgetattr(m_program, &settings) != 0)
        throw std::runtime_error("cannot open the pseudo-terminal");
    cfmakeraw(&settings);
    tcsetattr(m_program, TCSANOW, &settings);
    const winsize size = {0, columns, 0, 0};
    ioctl(m_program, TIOCSWINSZ, &size);
}

CTerminal::~CTerminal()
{
    close(m_program);
    close(m_reader);
}

std::string CTerminal::Text()
{
    std::array<char, 4096> piece;
    for (;;)
    {
        const ssize_t count = read(m_reader, piece.data(), piece.size());
        if (count <= 0)
            return m_text;
        m_text.append(piece.data(), static_cast<std::size_t>(count));
    }
}

} // namespace TestSupport
