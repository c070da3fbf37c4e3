// SPDX-License-Identifier: Apache-2.0
//
// The description of an exception that was not caught.

#include "AgentApp.h"
#include "ApplTrace.h"

#include <exception>
#include <typeinfo>

namespace
{

// The mangled name in the type information, which can be searched for. A
// leading '*', which marks a type local to one file, is left out.
const char* TypeName(const std::exception& error)
{
    const char* const name = typeid(error).name();
    return *name == '*' ? name + 1 : name;
}

// Describes the exception in flight.
wxString Describe()
{
    try
    {
        throw;
    }
    catch (const std::exception& error)
    {
        return wxString::Format(
            "std::exception of type \"%s\", what() = \"%s\"", TypeName(error),
            error.what());
    }
    catch (const char* text)
    {
        return wxString::Format("char * exception '%s'", text);
    }
    catch (const wchar_t* text)
    {
        return wxString::Format("wchar_t * exception '%s'", text);
    }
    catch (int value)
    {
        return wxString::Format("int exception %d", value);
    }
    catch (unsigned int value)
    {
        return wxString::Format("unsigned int exception %u", value);
    }
    catch (long value)
    {
        return wxString::Format("long exception %ld", value);
    }
    catch (unsigned long value)
    {
        return wxString::Format("unsigned long exception %lu", value);
    }
    catch (long long value)
    {
        return wxString::Format("long long exception %lld", value);
    }
    catch (unsigned long long value)
    {
        return wxString::Format("unsigned long long exception %llu", value);
    }
    catch (...)
    {
        return "<unknown exception>";
    }
}

} // namespace

void CAgentApp::OnUnhandledException()
{
    APPL_TRACE("OnUnhandledException()");
    const wxString description = Describe();
    APPL_TRACE("OnUnhandledException() - caught unhandled " + description +
               ", terminating app.");
}
