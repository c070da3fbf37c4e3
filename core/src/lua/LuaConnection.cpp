// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaConnection.h"

#include "base/Descriptor.h"
#include "base/Error.h"
#include "lua/LuaGuard.h"
#include "lua/LuaPush.h"

#include <lua.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <new>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace KzaCore
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr char kClass[] = "kza.host.Connection";
constexpr double kUsualSeconds = 5;
constexpr double kMostSeconds = 1e6; // keeps the arithmetic from overflowing

// A limit to the memory that a peer can make this process use.
constexpr std::size_t kLongestLine = 64 * 1024 * 1024;

struct CConnection
{
    CDescriptor socket;
    std::string received; // and not yet handed out
};

Clock::time_point CheckDeadline(lua_State* L, int index)
{
    const double seconds =
        std::clamp(luaL_optnumber(L, index, kUsualSeconds), 0.0, kMostSeconds);
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(seconds));
}

// True when the socket becomes ready before the deadline.
bool Await(int socket, short events, Clock::time_point deadline)
{
    for (;;)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - Clock::now());
        pollfd look{socket, events, 0};
        const int ready =
            poll(&look, 1, static_cast<int>(std::max<long>(left.count(), 0)));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

CConnection& CheckConnection(lua_State* L)
{
    auto* const connection =
        static_cast<CConnection*>(luaL_checkudata(L, 1, kClass));
    luaL_argcheck(L, connection->socket.IsOpen(), 1, "connection is closed");
    return *connection;
}

int Send(lua_State* L)
{
    const CConnection& connection = CheckConnection(L);
    std::size_t size = 0;
    const char* bytes = luaL_checklstring(L, 2, &size);
    const Clock::time_point deadline = CheckDeadline(L, 3);
    while (size > 0)
    {
        const ssize_t count =
            send(connection.socket.Get(), bytes, size, MSG_NOSIGNAL);
        if (count > 0)
        {
            bytes += count;
            size -= static_cast<std::size_t>(count);
        }
        else if (!WouldBlock())
            return PushFailure(L, SystemErrorText(errno));
        else if (!Await(connection.socket.Get(), POLLOUT, deadline))
            return PushFailure(L, "timeout");
    }
    lua_pushboolean(L, 1);
    return 1;
}

int Line(lua_State* L)
{
    CConnection& connection = CheckConnection(L);
    const Clock::time_point deadline = CheckDeadline(L, 2);
    std::size_t looked = 0;
    std::array<char, 16384> piece;
    for (;;)
    {
        const std::size_t end = connection.received.find('\n', looked);
        if (end != std::string::npos)
        {
            PushText(L, {connection.received.data(), end});
            connection.received.erase(0, end + 1);
            return 1;
        }
        looked = connection.received.size();
        if (looked > kLongestLine)
            return PushFailure(L, "line too long");
        const ssize_t count =
            recv(connection.socket.Get(), piece.data(), piece.size(), 0);
        if (count > 0)
            connection.received.append(piece.data(),
                                       static_cast<std::size_t>(count));
        else if (count == 0)
            return PushFailure(L, "closed");
        else if (!WouldBlock())
            return PushFailure(L, SystemErrorText(errno));
        else if (!Await(connection.socket.Get(), POLLIN, deadline))
            return PushFailure(L, "timeout");
    }
}

int Close(lua_State* L)
{
    static_cast<CConnection*>(luaL_checkudata(L, 1, kClass))->socket.Close();
    return 0;
}

int Collect(lua_State* L)
{
    static_cast<CConnection*>(luaL_checkudata(L, 1, kClass))->~CConnection();
    return 0;
}

const luaL_Reg kMethods[] = {{"send", Guarded<Send>},
                             {"line", Guarded<Line>},
                             {"close", Guarded<Close>},
                             {"__gc", Guarded<Collect>},
                             {nullptr, nullptr}};

CConnection& PushConnection(lua_State* L)
{
    auto* const connection =
        new (lua_newuserdata(L, sizeof(CConnection))) CConnection;
    if (luaL_newmetatable(L, kClass) != 0)
    {
        luaL_setfuncs(L, kMethods, 0);
        lua_pushvalue(L, -1);
        lua_setfield(L, -2, "__index");
    }
    lua_setmetatable(L, -2);
    return *connection;
}

bool Prepare(int socket)
{
    return fcntl(socket, F_SETFD, FD_CLOEXEC) == 0 &&
           fcntl(socket, F_SETFL, O_NONBLOCK) == 0;
}

} // namespace

int LuaConnect(lua_State* L)
{
    std::size_t size = 0;
    const char* const path = luaL_checklstring(L, 1, &size);
    const Clock::time_point deadline = CheckDeadline(L, 2);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    luaL_argcheck(L, size < sizeof address.sun_path, 1,
                  "path too long for a socket");
    std::copy_n(path, size, address.sun_path);

    CConnection& connection = PushConnection(L);
    connection.socket = CDescriptor(socket(AF_UNIX, SOCK_STREAM, 0));
    if (!Prepare(connection.socket.Get()))
        return PushFailure(L, SystemErrorText(errno));
    // While the listener's queue is full, connect() fails with EAGAIN, and no
    // event reports when there is room.
    while (connect(connection.socket.Get(),
                   reinterpret_cast<const sockaddr*>(&address),
                   sizeof address) != 0)
    {
        if (!WouldBlock())
            return PushFailure(L, SystemErrorText(errno));
        if (Clock::now() >= deadline)
            return PushFailure(L, "timeout");
        poll(nullptr, 0, 1);
    }
    return 1;
}

} // namespace KzaCore
