// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaProcess.h"

#include "base/Descriptor.h"
#include "base/NewDescriptor.h"
#include "process/Spawn.h"

#include <lua.hpp>

#include <array>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// Descriptors from this one on are the agent's own. Through one of them, a
// child could read a file that it has no right to open.
constexpr int kFirstPrivate = STDERR_FILENO + 1;

// Lua's file handle, which must be the first member, and the child at the other
// end of the pipe.
struct CChildStream
{
    luaL_Stream stream;
    pid_t pid;
};

// The wait status of a command, -1 with errno set.
int RunShell(const char* command)
{
    CSpawn spawn;
    spawn.CloseFrom(kFirstPrivate);
    pid_t pid = 0;
    const int failure = spawn.StartShell(command, pid);
    if (failure == 0)
        return CSpawn::WaitFor(pid);
    errno = failure;
    return -1;
}

int ExecuteCB(lua_State* L)
{
    const char* const command = luaL_optstring(L, 1, nullptr);
    if (command != nullptr)
        return luaL_execresult(L, RunShell(command));
    lua_pushboolean(L, 1); // every POSIX system has a shell
    return 1;
}

// "r" or "w". The C library also accepts an "e", for a descriptor that is
// closed on exec; here it always is.
bool IsMode(const char* mode)
{
    return (*mode == 'r' || *mode == 'w') &&
           (mode[1] == '\0' || (mode[1] == 'e' && mode[2] == '\0'));
}

// Starts the command with one end of a pipe in place of its standard output or
// input, and opens the other end as a file.
//
// \return null with errno set after a failure.
FILE* OpenChild(const char* command, const char* mode, pid_t& pid)
{
    std::array<int, 2> ends{};
    if (!IsMode(mode))
        errno = EINVAL;
    if (!IsMode(mode) || !OpenPipe(ends))
        return nullptr;
    const bool reads = *mode == 'r';
    CDescriptor ours(ends[reads ? 0 : 1]);
    const CDescriptor theirs(ends[reads ? 1 : 0]);

    FILE* const file = fdopen(ours.Get(), reads ? "r" : "w");
    if (file == nullptr)
        return nullptr;
    ours.Disown();

    CSpawn spawn;
    spawn.Redirect(theirs.Get(), reads ? STDOUT_FILENO : STDIN_FILENO);
    spawn.CloseFrom(kFirstPrivate);
    const int failure = spawn.StartShell(command, pid);
    if (failure == 0)
        return file;
    fclose(file);
    errno = failure;
    return nullptr;
}

int CloseChildCB(lua_State* L)
{
    const auto* const child =
        static_cast<CChildStream*>(luaL_checkudata(L, 1, LUA_FILEHANDLE));
    const bool closed = fclose(child->stream.f) == 0;
    const int reason = errno;
    const int status = CSpawn::WaitFor(child->pid);
    if (!closed)
        errno = reason;
    return luaL_execresult(L, closed ? status : -1);
}

int PopenCB(lua_State* L)
{
    const char* const command = luaL_checkstring(L, 1);
    const char* const mode = luaL_optstring(L, 2, "r");

    // Marked as closed until the child runs, because the collector may finalize
    // the handle before.
    auto* const child =
        static_cast<CChildStream*>(lua_newuserdata(L, sizeof(CChildStream)));
    child->stream.closef = nullptr;
    luaL_setmetatable(L, LUA_FILEHANDLE);

    fflush(nullptr);
    child->stream.f = OpenChild(command, mode, child->pid);
    if (child->stream.f == nullptr)
        return luaL_fileresult(L, 0, command);
    child->stream.closef = CloseChildCB;
    return 1;
}

void Replace(lua_State* L,
             const char* library,
             const char* name,
             lua_CFunction function)
{
    lua_getglobal(L, library);
    lua_pushcfunction(L, function);
    lua_setfield(L, -2, name);
    lua_pop(L, 1);
}

} // namespace

void InstallLuaProcess(lua_State* L)
{
    Replace(L, "os", "execute", ExecuteCB);
    Replace(L, "io", "popen", PopenCB);
}

} // namespace KzaCore
