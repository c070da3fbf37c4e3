// SPDX-License-Identifier: Apache-2.0

#include "control/ControlRequest.h"

#include <nlohmann/json.hpp>
#include <wx/base64.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <unistd.h>

namespace
{

using Json = nlohmann::ordered_json; // members in the order they are written

// Thrown for a wrong member of a request, with the reason for the answer;
// caught in this file.
class CBadRequest : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The library refuses to write a text that is not UTF-8.
bool IsUtf8(const Json& text)
{
    try
    {
        (void)text.dump();
        return true;
    }
    catch (const Json::type_error&)
    {
        return false;
    }
}

std::string Base64(const std::string& bytes)
{
    return wxBase64Encode(bytes.data(), bytes.size()).ToStdString();
}

void AddText(Json& answer, const std::string& text)
{
    Json value = text;
    if (IsUtf8(value))
        answer["value"] = std::move(value);
    else
        answer["base64"] = Base64(text);
}

const Json& Member(const Json& request, const char* name)
{
    const auto found = request.find(name);
    if (found == request.end())
        throw CBadRequest("'" + std::string(name) + "' is missing");
    return *found;
}

std::string TextOf(const Json& value, const char* name)
{
    if (!value.is_string())
        throw CBadRequest("'" + std::string(name) + "' is no text");
    return value.get<std::string>();
}

std::string KeyOf(const Json& request)
{
    std::string key = TextOf(Member(request, "key"), "key");
    if (key.empty())
        throw CBadRequest("'key' is empty");
    return key;
}

bool FitsInteger(const Json& value)
{
    constexpr auto kMost =
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return !value.is_number_unsigned() || value.get<std::uint64_t>() <= kMost;
}

std::string Get(const KzaCore::CDom& dom, const Json& request)
{
    return ControlValueLine(dom.Value(KeyOf(request)));
}

std::string Set(KzaCore::CDom& dom, const Json& request)
{
    const std::string key = KeyOf(request);
    const Json& value = Member(request, "value");
    if (value.is_string())
        dom.Set(key, value.get<std::string>());
    else if (value.is_boolean())
        dom.Set(key, value.get<bool>());
    else if (value.is_number_integer() && FitsInteger(value))
        dom.Set(key, value.get<long long>());
    else
        throw CBadRequest("'value' is neither a text nor a boolean nor an "
                          "integer of 64 bits");
    return Json({{"ok", true}}).dump();
}

std::string Unset(KzaCore::CDom& dom, const Json& request)
{
    dom.Remove(KeyOf(request));
    return Json({{"ok", true}}).dump();
}

std::string Keys(const KzaCore::CDom& dom, const Json& request)
{
    const auto found = request.find("prefix");
    const std::string prefix =
        found == request.end() ? std::string() : TextOf(*found, "prefix");
    Json keys = Json::array();
    for (const std::string& key : dom.Keys(prefix))
    {
        Json text = key;
        keys.push_back(IsUtf8(text) ? std::move(text)
                                    : Json({{"base64", Base64(key)}}));
    }
    return Json({{"ok", true}, {"keys", std::move(keys)}}).dump();
}

std::string VersionOf(const CControlIdentity& self)
{
    return Json({{"ok", true},
                 {"name", self.name},
                 {"version", self.version},
                 {"pid", getpid()}})
        .dump();
}

CControlAnswer Answer(KzaCore::CDom& dom,
                      const CControlIdentity& self,
                      const Json& request)
{
    if (!request.is_object())
        throw CBadRequest("the line is no JSON object");
    const std::string what = TextOf(Member(request, "do"), "do");
    if (what == "get")
        return {Get(dom, request), false, {}};
    if (what == "set")
        return {Set(dom, request), false, {}};
    if (what == "unset")
        return {Unset(dom, request), false, {}};
    if (what == "keys")
        return {Keys(dom, request), false, {}};
    if (what == "watch")
        return {std::string(), true, KeyOf(request)};
    if (what == "version")
        return {VersionOf(self), false, {}};
    throw CBadRequest("no such request: '" + what + "'");
}

} // namespace

std::string ControlValueLine(const KzaCore::DomValue& value)
{
    Json answer = {{"ok", true}};
    std::visit(
        [&answer](const auto& content)
        {
            using TContent = std::decay_t<decltype(content)>;
            if constexpr (std::is_same_v<TContent, std::string>)
            {
                answer["type"] = "string";
                AddText(answer, content);
            }
            else if constexpr (std::is_same_v<TContent, std::monostate>)
                answer["type"] = "nil";
            else
            {
                answer["type"] =
                    std::is_same_v<TContent, bool> ? "boolean" : "number";
                answer["value"] = content;
            }
        },
        value);
    return answer.dump();
}

std::string ControlErrorLine(const std::string& reason)
{
    const Json answer = {{"ok", false}, {"error", reason}};
    return answer.dump(-1, ' ', false, Json::error_handler_t::replace);
}

CControlAnswer AnswerControlRequest(KzaCore::CDom& dom,
                                    const CControlIdentity& self,
                                    const std::string& line)
{
    try
    {
        return Answer(dom, self, Json::parse(line));
    }
    catch (const Json::parse_error&)
    {
        return {ControlErrorLine("the line is no JSON object"), false, {}};
    }
    catch (const std::exception& problem)
    {
        return {ControlErrorLine(problem.what()), false, {}};
    }
}
