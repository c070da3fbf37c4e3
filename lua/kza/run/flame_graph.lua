-- SPDX-License-Identifier: Apache-2.0
--
-- A profile as a flame graph: one SVG file with a title on each frame, a search
-- field, and zoom by a click.

local WIDTH, ROW, MARGIN, TOP = 1200, 18, 10, 70

-- Frames that would be narrower than this share of the width are left out.
local NARROWEST = 0.0001

-- Width of a character of the font, in pixels.
local CHARACTER = 7.2

local HEAD = [[
<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" version="1.1" viewBox="0 0 %d %d"
     width="100%%" font-family="monospace" font-size="12">
<title>%s</title>
<style>
rect { stroke: #fff; stroke-width: .5 }
.frame { cursor: pointer }
.frame:hover rect { stroke: #000 }
.frame text { pointer-events: none }
.found rect { fill: #d2f }
.hidden { display: none }
input { font: 12px monospace; width: 20em }
</style>
<rect width="100%%" height="100%%" fill="#fdfdf6"/>
<text x="%d" y="24" font-size="16">%s</text>
<foreignObject x="%d" y="34" width="300" height="30">
<input xmlns="http://www.w3.org/1999/xhtml" id="search" type="search"
       placeholder="search (a regular expression)"/>
</foreignObject>
<text x="330" y="52" id="matched"></text>
]]

-- Each frame has its place in the attributes x and w, as shares of the whole.
local SCRIPT = [==[
<script><![CDATA[
"use strict";
const width = %d, margin = %d, character = %g;
const frames = [...document.querySelectorAll(".frame")].map(group => ({
    group, rect: group.querySelector("rect"),
    text: group.querySelector("text"),
    label: group.getAttribute("data-label"),
    x: +group.getAttribute("data-x"), w: +group.getAttribute("data-w"),
}));
let from = 0, span = 1;

function place(frame) {
    const left = Math.max(0, (frame.x - from) / span);
    const right = Math.min(1, (frame.x + frame.w - from) / span);
    const shown = right - left > 1e-4;
    frame.group.classList.toggle("hidden", !shown);
    if (!shown)
        return;
    const pixels = (right - left) * (width - 2 * margin);
    const room = Math.floor((pixels - 6) / character);
    frame.rect.setAttribute("x", margin + left * (width - 2 * margin));
    frame.rect.setAttribute("width", pixels);
    frame.text.setAttribute("x", margin + left * (width - 2 * margin) + 3);
    frame.text.textContent = room < 3 ? "" : frame.label.length <= room
        ? frame.label : frame.label.slice(0, room - 2) + "..";
}

function zoom(frame) {
    from = frame.x;
    span = frame.w;
    frames.forEach(place);
}

// The share of the frames that match, each part of the time counted once.
function share(found) {
    let sum = 0, end = 0;
    for (const {x, w} of found.sort((a, b) => a.x - b.x || b.w - a.w)) {
        sum += Math.max(0, x + w - Math.max(x, end));
        end = Math.max(end, x + w);
    }
    return sum;
}

function search(pattern) {
    const matched = document.getElementById("matched");
    let expression = null;
    try {
        expression = pattern && new RegExp(pattern);
    } catch (error) {
        matched.textContent = error.message;
        return;
    }
    const found = frames.filter(frame => {
        const fits = Boolean(expression) && expression.test(frame.label);
        frame.group.classList.toggle("found", fits);
        return fits;
    });
    matched.textContent = expression
        ? "matched: " + (100 * share(found)).toFixed(1) + " %%" : "";
}

for (const frame of frames)
    frame.group.addEventListener("click", () => zoom(frame));
const field = document.getElementById("search");
field.addEventListener("input", () => search(field.value));
field.value = decodeURIComponent(location.hash.slice(1));
search(field.value);
]]></script>
</svg>
]==]

local ENTITIES = { ["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;",
    ['"'] = "&quot;" }

local function escape(text)
    return (text:gsub('[&<>"]', ENTITIES))
end

-- A node of the tree of calls, with its children as a list and by label.
local function new_node(label, native, depth)
    return { label = label, native = native, ms = 0, depth = depth,
        by_label = {}, children = {} }
end

local function child_of(node, frame)
    local child = node.by_label[frame.label]
    if not child then
        child = new_node(frame.label, not frame.file, node.depth + 1)
        node.by_label[frame.label] = child
        node.children[#node.children + 1] = child
    end
    return child
end

local function tree_of(profile)
    local root = new_node("all", false, 0)
    for _, sample in ipairs(profile.samples) do
        local node = root
        node.ms = node.ms + sample.ms
        for _, index in ipairs(sample.stack) do
            node = child_of(node, profile.frames[index])
            node.ms = node.ms + sample.ms
        end
    end
    return root
end

-- The same label has the same colour in every graph.
local function colour(node)
    local hash = 0
    for i = 1, #node.label do
        hash = (hash * 31 + node.label:byte(i)) % 65521
    end
    if node.native then
        return ("#%02x%02xee"):format(120 + hash % 60, 160 + hash % 50)
    end
    return ("#%02x%02x40"):format(215 + hash % 40, 110 + hash % 110)
end

-- The pixel row of a node's upper edge: callers stand below.
local function row_of(depth, deepest)
    return TOP + (deepest - depth) * ROW
end

local function clipped(label, pixels)
    local room = math.floor((pixels - 6) / CHARACTER)
    if room < 3 then
        return ""
    end
    -- A label that is not ASCII may be clipped inside of a character.
    if #label <= room or label:find("[\128-\255]") then
        return #label <= room and label or ""
    end
    return label:sub(1, room - 2) .. ".."
end

local function add_node(parts, node, x, total, deepest)
    local share = total > 0 and node.ms / total or 1
    if share < NARROWEST then
        return
    end
    local inner = WIDTH - 2 * MARGIN
    local left, pixels = MARGIN + x * inner, share * inner
    local y = row_of(node.depth, deepest)
    parts[#parts + 1] = ('<g class="frame" data-label="%s" data-x="%.6f" '
        .. 'data-w="%.6f"><title>%s: %.1f ms (%.1f %%)</title>'
        .. '<rect x="%.2f" y="%d" width="%.2f" height="%d" fill="%s"/>'
        .. '<text x="%.2f" y="%d">%s</text></g>\n'):format(
        escape(node.label), x, share, escape(node.label), node.ms, share * 100,
        left, y, pixels, ROW - 1, colour(node),
        left + 3, y + 13, escape(clipped(node.label, pixels)))
    table.sort(node.children, function(a, b) return a.label < b.label end)
    for _, child in ipairs(node.children) do
        add_node(parts, child, x, total, deepest)
        x = x + (total > 0 and child.ms / total or 0)
    end
end

local function depth_of(node)
    local deepest = node.depth
    for _, child in ipairs(node.children) do
        deepest = math.max(deepest, depth_of(child))
    end
    return deepest
end

--- The text of the SVG file.
---@param profile kza.run.Profile
---@param name string  Of the application.
---@return string
return function(profile, name)
    local root = tree_of(profile)
    local deepest = depth_of(root)
    local title = escape(("%s: %.0f ms of CPU time"):format(name, profile.ms))
    local parts = { HEAD:format(WIDTH, row_of(-1, deepest) + MARGIN, title,
        MARGIN, title, MARGIN) }
    add_node(parts, root, 0, profile.ms, deepest)
    parts[#parts + 1] = SCRIPT:format(WIDTH, MARGIN, CHARACTER)
    return table.concat(parts)
end
