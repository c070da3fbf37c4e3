// SPDX-License-Identifier: Apache-2.0
//
// The language of the control socket: one JSON object a line each way.
//
//     {"do":"get","key":"app.name"} {"ok":true,"type":"string","value":"…"}
//     {"do":"set","key":"k","value":7}   {"ok":true}
//     {"do":"unset","key":"k"}           {"ok":true}
//     {"do":"keys","prefix":"app."}      {"ok":true,"keys":["app.name",…]}
//     {"do":"watch","key":"k"}           as get, now and after each change
//     {"do":"version"}    {"ok":true,"name":"…","version":"…","pid":7}
//     any other line      {"ok":false,"error":"…"}
//
// The types are `string`, `boolean`, `number` and, for an unset key, `nil`,
// which has no `value`. A text that is not UTF-8 comes as `base64` in the place
// of `value`. Lines are shown here without their line breaks.
//
// Threads: any. No function waits.

#pragma once

#include "kza_core/Dom.h"

#include <string>

/// The answering agent; the same for the life of the process.
struct CControlIdentity
{
    std::string name;    // of the application, UTF-8
    std::string version; // of the agent
};

struct CControlAnswer
{
    std::string line;    // empty for a request to watch a key
    bool watch = false;  // the client asks for each change of a key
    std::string watched; // that key
};

/// Carries out the request in one line.
///
/// \param line  Bytes of a client, without the line break; may be anything.
[[nodiscard]] CControlAnswer AnswerControlRequest(KzaCore::CDom& dom,
                                                  const CControlIdentity& self,
                                                  const std::string& line);

/// The answer to `get` for a value, or for an unset key.
[[nodiscard]] std::string ControlValueLine(const KzaCore::DomValue& value);

/// The answer to a request that cannot be carried out.
[[nodiscard]] std::string ControlErrorLine(const std::string& reason);
