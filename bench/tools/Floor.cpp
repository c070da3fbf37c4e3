// SPDX-License-Identifier: Apache-2.0
//
// The least that a program with the agent's libraries does before it can run a
// script: framework, OpenSSL with its random seed by the agent's own calls,
// SQLite, a Lua state. Prints one line from Lua and waits to be killed. With a
// word, tells what each step took on standard error and ends.

#include <wx/app.h>
#include <wx/log.h>

#include <lua.hpp>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace
{

class CSteps
{
public:
    void Done(const char* step)
    {
        const auto now = std::chrono::steady_clock::now();
        const std::chrono::duration<double, std::milli> time = now - m_last;
        if (m_told)
            std::fprintf(stderr, "%s\t%.2f\n", step, time.count());
        m_last = std::chrono::steady_clock::now();
    }
    void Tell() { m_told = true; }
    [[nodiscard]] bool AreTold() const { return m_told; }

private:
    bool m_told = false;
    std::chrono::steady_clock::time_point m_last =
        std::chrono::steady_clock::now();
};

CSteps s_steps;

class CFloor : public wxAppConsole
{
public:
    bool OnInit() override
    {
        if (!wxAppConsole::OnInit())
            return false;
        s_steps.Done("framework");
        OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
        OPENSSL_add_all_algorithms_noconf();
        SSL_library_init();
        SSL_load_error_strings();
        s_steps.Done("OpenSSL");
        RAND_poll();
        RAND_status();
        s_steps.Done("random seed");
        sqlite3_initialize();
        s_steps.Done("SQLite");
        return true;
    }

    int OnRun() override
    {
        lua_State* const L = luaL_newstate();
        luaL_openlibs(L);
        s_steps.Done("Lua state");
        const bool printed =
            luaL_dostring(L, "print('floor') io.stdout:flush()") == LUA_OK;
        // The program that waits for the line may need the processor.
        return printed && !s_steps.AreTold() ? pause() : 0;
    }
};

} // namespace

wxIMPLEMENT_APP_NO_MAIN(CFloor);

int main(int argc, char** argv)
{
    if (argc > 1)
        s_steps.Tell();
    int words = 1;
    return wxEntry(words, argv);
}
