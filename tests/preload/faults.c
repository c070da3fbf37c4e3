/* SPDX-License-Identifier: Apache-2.0
 *
 * Preloaded into the agent: the function named in KZA_FAULT fails, the others
 * do what they always do.
 */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct lua_State;

int luaL_error(struct lua_State* L, const char* format, ...);
void luaL_checkstack(struct lua_State* L, int space, const char* message);
void luaL_checkversion_(struct lua_State* L, double version);
struct lua_State* luaL_newstate(void);
int RAND_status(void);
int sigwait(const sigset_t* set, int* signal);
int RAND_poll(void);

static int is_fault(const char* name)
{
    const char* const fault = getenv("KZA_FAULT");
    return fault != NULL && strcmp(fault, name) == 0;
}

static void* next(const char* name)
{
    return dlsym(RTLD_NEXT, name);
}

void luaL_checkstack(struct lua_State* L, int space, const char* message)
{
    if (is_fault("lua_stack") && strstr(message, "script") != NULL)
        luaL_error(L, "stack overflow (%s)", message);
    void (*real)(struct lua_State*, int, const char*);
    *(void**)&real = next("luaL_checkstack");
    real(L, space, message);
}

/* Lua's own libraries ask too; only the agent's question counts. */
static int is_asked_by_agent(const void* caller)
{
    Dl_info place;
    return dladdr(caller, &place) != 0 &&
           strstr(place.dli_fname, "kz_agent") != NULL;
}

void luaL_checkversion_(struct lua_State* L, double version)
{
    if (is_fault("lua_version") &&
        is_asked_by_agent(__builtin_return_address(0)))
        luaL_error(L, "not version %d", (int)version);
    void (*real)(struct lua_State*, double);
    *(void**)&real = next("luaL_checkversion_");
    real(L, version);
}

struct lua_State* luaL_newstate(void)
{
    if (is_fault("lua_newstate"))
        return NULL;
    struct lua_State* (*real)(void);
    *(void**)&real = next("luaL_newstate");
    return real();
}

int RAND_status(void)
{
    if (is_fault("rand_status"))
        return 0;
    int (*real)(void);
    *(void**)&real = next("RAND_status");
    return real();
}

int sigwait(const sigset_t* set, int* signal)
{
    if (is_fault("sigwait"))
        return EINVAL;
    int (*real)(const sigset_t*, int*);
    *(void**)&real = next("sigwait");
    return real(set, signal);
}

/* Of the agent's own variable only. */
int setenv(const char* name, const char* value, int replace)
{
    if (is_fault("setenv") && strcmp(name, "OPENSSL_ENGINES") == 0)
    {
        errno = ENOMEM;
        return -1;
    }
    int (*real)(const char*, const char*, int);
    *(void**)&real = next("setenv");
    return real(name, value, replace);
}

/* Writes how often it was called to the file in KZA_FAULT_REPORT. */
int RAND_poll(void)
{
    static int calls = 0;
    const char* const report = getenv("KZA_FAULT_REPORT");
    ++calls;
    if (is_fault("rand_status") && report != NULL)
    {
        FILE* const file = fopen(report, "w");
        if (file != NULL)
        {
            fprintf(file, "%d", calls);
            fclose(file);
        }
    }
    int (*real)(void);
    *(void**)&real = next("RAND_poll");
    return real();
}
