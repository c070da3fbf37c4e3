-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: the start's own records and messages, also on FIPS mode.

local RESULTS = { ERROR = "error", WARNING = "warning" }

-- The subjects of records, by patterns of their texts; the first match counts.
local SUBJECTS = {
    { "can be changed by others", "owners" },
    { "FIPS", "fips" },
    { "^Setting '", "configuration" },
    { "^[Ff]ile '.*, line %d+:", "configuration" },
    { "SQLite", "configuration" },
    { "^%-%-", "options" },
    { "^Only words after '%-%-'", "options" },
    { "no matches$", "archives" },
    { "[Ee]xtension", "archives" },
    { "^Archive '", "archives" },
}

local function subject_of(text)
    for _, row in ipairs(SUBJECTS) do
        if text:find(row[1]) then
            return row[2]
        end
    end
    return "start"
end

local function is_fips_wanted(found)
    local mode = found.keys["app.fipsmode"]
    return mode ~= nil and mode ~= "" and mode ~= "0"
end

---@param report kza.ctl.Report
---@param found kza.ctl.Settings
return function(report, _, found)
    if found.bad_options then
        return
    end
    local errors, fips = 0, false
    for _, record in ipairs(found.records) do
        local result = RESULTS[record.level]
        if result then
            local subject = subject_of(record.text)
            report:add(result, subject, "%s", record.text)
            errors = errors + (result == "error" and 1 or 0)
            fips = fips or subject == "fips"
        end
    end
    for _, text in ipairs(found.complaints or {}) do
        report:add("warning", "start", "%s", text)
    end
    for _, text in ipairs(errors == 0 and found.refusal or {}) do
        report:add("error", subject_of(text), "%s", text)
    end
    if is_fips_wanted(found) and not fips then
        report:add("ok", "fips", "FIPS mode can be entered")
    end
end
