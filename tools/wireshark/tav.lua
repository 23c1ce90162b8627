-- A dissector for Wireshark and tshark: frames, packets of both formats, NBR trees and gate messages, with the names that
-- a template has for them.  docs/tool/wireshark.md tells how it is used.
--
-- Whatever the bytes are, nothing here recurses with them, reads beyond what was captured, or shows more than
-- `most_values` of them at a time.

local tav = Proto("tav", "Tav Message Frames")
local gate = Proto("tav_gate", "Tav Gate Message")

local tcp_stream = Field.new("tcp.stream")

local frame_head = 4
local largest_frame = 0xFFFFFF
local gate_head = 12
-- Of the nine values of an old packet.
local old_body = 8
local old_option = 9
local largest_template = 64 * 1024 * 1024
-- Of a text, as it is shown, and of bytes: Wireshark cuts lines of more than 240 bytes itself, and says so ahead of the name.
local shown_text = 160
local shown_bytes = 16
-- Wireshark allows 500 levels of items, its own among them: what lies deeper stands at this one.
local deepest = 100
-- Of the heartbeats ahead of what a connection is known by.
local most_heartbeats = 16
-- Of the messages that one column names.
local most_in_column = 8

local names = {
    affirm = { [0x20] = "asks for a receipt", [0x30] = "a receipt" },
    extension = { "serverTime", "clientTime", "traceId" },
    option = {
        "version", "currentPos", "totalSize", "no_resend", "target", "crypt",
        [8] = "sessionId", [13] = "gwtd", [14] = "hmac",
    },
    old = { "kind", "subKind", "flag", "sequence", "extra", "target", "code", "body", "option" },
    protocol = {
        [0] = "NOTHING", [1] = "TEXT", [2] = "BINARY", [3] = "NBR", [5] = "PML", [6] = "XML", [7] = "JSON",
        [8] = "HEARTBEAT", [255] = "UNKNOWN",
    },
    direction = { [0] = "ARG", [1] = "ACK", [2] = "NOTIFY", [255] = "UNKNOWN" },
}

local f = {
    length = ProtoField.uint32("tav.length", "Length"),
    heartbeat = ProtoField.none("tav.heartbeat", "Heartbeat"),
    version = ProtoField.uint16("tav.version", "Version"),
    affirm = ProtoField.uint8("tav.affirm", "Affirm", base.HEX),
    code = ProtoField.uint16("tav.code", "Code", base.HEX),
    class = ProtoField.string("tav.class", "Class"),
    flags = ProtoField.uint8("tav.flags", "Flags", base.HEX),
    sequence = ProtoField.int32("tav.sequence", "Sequence"),
    session = ProtoField.uint64("tav.session", "Session", base.HEX),
    extension = ProtoField.uint16("tav.extension", "Size of the extension"),
    body = ProtoField.bytes("tav.body", "Body"),
    field = ProtoField.string("tav.field", "Field"),
    text = ProtoField.string("tav.text", "Text"),
    number = ProtoField.int64("tav.number", "Number"),
    unsigned = ProtoField.uint64("tav.unsigned", "Unsigned number"),
    real = ProtoField.double("tav.real", "Real number"),
    bytes = ProtoField.string("tav.bytes", "Bytes"),
    null = ProtoField.none("tav.null", "Null"),
    note = ProtoField.none("tav.note", "Note"),
    complex = ProtoField.none("tav.complex", "Object, list or map"),
}
tav.fields = f

local g = {
    protocol = ProtoField.uint8("tav_gate.protocol", "Protocol"),
    type = ProtoField.uint16("tav_gate.type", "Type", base.HEX),
    direction = ProtoField.uint8("tav_gate.direction", "Direction"),
    sequence = ProtoField.int32("tav_gate.sequence", "Sequence"),
    extras = ProtoField.bytes("tav_gate.extras", "Extras"),
    head_size = ProtoField.uint16("tav_gate.head_size", "Size of the head"),
    text = ProtoField.string("tav_gate.text", "Text"),
    bytes = ProtoField.string("tav_gate.bytes", "Bytes"),
}
gate.fields = g

local e = {
    broken = ProtoExpert.new("tav.broken", "Broken", expert.group.MALFORMED, expert.severity.ERROR),
    odd = ProtoExpert.new("tav.odd", "Other than expected", expert.group.PROTOCOL, expert.severity.WARN),
    unshown = ProtoExpert.new("tav.unshown", "Not shown", expert.group.UNDECODED, expert.severity.NOTE),
    template = ProtoExpert.new("tav.template_fault", "The template can't be used", expert.group.UNDECODED,
        expert.severity.WARN),
}
tav.experts = e

tav.prefs.ports = Pref.range("TLS ports", "", "Ports whose TLS connections hold frames; without them the first bytes tell",
    65535)
tav.prefs.template = Pref.string("Template", "", "File of a template (PML): names for codes, classes and fields")
tav.prefs.body = Pref.enum("Bodies of packets", 0, "What the body of a packet is",
    { { 1, "NBR, if it looks like it", 0 }, { 2, "gate messages", 1 } }, false)
tav.prefs.reveal = Pref.bool("Show protected values", false, "Show what the template protects, in the tree and to filters")
tav.prefs.most_values = Pref.uint("Most values", 20000, "Of the frames that come together no more values than this are shown")

-- Texts ---------------------------------------------------------------------------------------------------------------

local function plural(count, one)
    return count == 1 and "1 " .. one or string.format("%.0f %ss", count, one)
end

local function hex_text(bytes)
    return (bytes:gsub(".", function(c) return string.format("%02X ", c:byte()) end):gsub(" $", ""))
end

-- The bytes of the UTF-8 character that begins at `at`; nil if none does.
local function utf8_size(text, at)
    local first = text:byte(at)
    if first < 0x80 then return 1 end
    local size = first >= 0xF0 and 4 or first >= 0xE0 and 3 or 2
    if first < 0xC2 or first > 0xF4 or at + size - 1 > #text then return nil end
    for i = at + 1, at + size - 1 do
        local c = text:byte(i)
        if c < 0x80 or c > 0xBF then return nil end
    end
    local second = text:byte(at + 1)
    if first == 0xE0 and second < 0xA0 or first == 0xED and second > 0x9F or
        first == 0xF0 and second < 0x90 or first == 0xF4 and second > 0x8F then
        return nil
    end
    return size
end

-- Above ASCII: controls of 8 bits, which a terminal may obey, breaks, and what sets the direction of the text around it.
local controls = { { 0x80, 0x9F }, { 0x61C, 0x61C }, { 0x200E, 0x200F }, { 0x2028, 0x202E }, { 0x2066, 0x2069 } }

-- A character of more than one byte.
local function shown_character(bytes)
    local number = bytes:byte(1) % 2 ^ (7 - #bytes)
    for i = 2, #bytes do
        number = number * 64 + bytes:byte(i) % 64
    end
    for _, range in ipairs(controls) do
        if number >= range[1] and number <= range[2] then return string.format("\\u%04X", number) end
    end
    return bytes
end

local escapes = { [0x0A] = "\\n", [0x09] = "\\t", [0x22] = "\\\"", [0x5C] = "\\\\" }

-- A text of a peer's is shown as text: nothing in it reaches a terminal or a window as anything else.
local function quoted(text)
    local parts, at, left = {}, 1, shown_text
    while at <= #text and left > 0 do
        local plain = text:match("^[^%c\"\\\128-\255]+", at)
        if plain then
            parts[#parts + 1] = plain:sub(1, left)
            at = at + #parts[#parts]
        else
            local byte, size = text:byte(at), utf8_size(text, at)
            if size and size > 1 then
                parts[#parts + 1] = shown_character(text:sub(at, at + size - 1))
            else
                parts[#parts + 1] = escapes[byte] or string.format("\\x%02X", byte)
            end
            at = at + (size or 1)
        end
        left = left - #parts[#parts]
    end
    local result = '"' .. table.concat(parts) .. '"'
    return at > #text and result or result .. "... (" .. #text .. " bytes)"
end

-- A name that a file gives: the same, without the quotes.
local function name_text(text)
    return quoted(text):gsub('^"', ""):gsub('"$', "")
end

local function bytes_text(data)
    if data == "" then return "(empty)" end
    local text = hex_text(data:sub(1, shown_bytes))
    return #data > shown_bytes and text .. " ... (" .. #data .. " bytes)" or text
end

-- An item of a field that has no value of its own.
local function add_text(parent, field, range, text)
    return parent:add(field, range):set_text(text)
end

-- Numbers -------------------------------------------------------------------------------------------------------------

local function big_endian(raw, at, size)
    local value = 0
    for i = at, at + size - 1 do
        value = value * 256 + raw:byte(i)
    end
    return value
end

local function little_endian(raw, at, size)
    local value = 0
    for i = at + size - 1, at, -1 do
        value = value * 256 + raw:byte(i)
    end
    return value
end

-- The integer that the data of a value are, of a type with this width: its text, and an Int64 for filters.  Bytes beyond the
-- width do not count, and a value that is shorter is not negative.
local function integer(data, width, signed)
    local size = math.min(#data, width)
    local low, high = little_endian(data, 1, math.min(size, 4)), 0
    if size > 4 then
        high = little_endian(data, 5, size - 4)
        return tostring((signed and Int64 or UInt64).new(low, high)), Int64.new(low, high)
    end
    if signed and size == width and low >= 2 ^ (8 * width - 1) then
        low = low - 2 ^ (8 * width)
    end
    return string.format("%.0f", low), Int64.new(low)
end

-- PML: a text of units -------------------------------------------------------------------------------------------------

local Pml = {}
Pml.__index = Pml

function Pml:fail(text)
    local before = self.text:sub(1, self.at - 1)
    local _, lines = before:gsub("\n", "")
    error({ line = lines + 1, column = #before:match("[^\n]*$") + 1, text = text })
end

function Pml:at_comment()
    return self.text:sub(self.at, self.at + 1) == "(*"
end

-- Steps over blanks and comments; true if there was a blank.
function Pml:skip()
    local blank = false
    while true do
        local last = select(2, self.text:find("^[ \t\r\n]+", self.at))
        if last then
            blank = true
            self.at = last + 1
        elseif self:at_comment() then
            local close = select(2, self.text:find("*)", self.at + 2, true))
            self.at = (close or #self.text) + 1
        else
            return blank
        end
    end
end

-- Text up to one of the stop characters, without blanks and comments; `gap` stands for blanks.
function Pml:words(stops, gap)
    local parts = {}
    while self.at <= #self.text do
        local first, last = self.text:find("^[^ \t\r\n" .. stops .. "]+", self.at)
        if first then
            parts[#parts + 1] = self.text:sub(first, last)
            self.at = last + 1
        elseif self:at_comment() or self.text:find("^[ \t\r\n]", self.at) then
            if self:skip() then parts[#parts + 1] = gap end
        else
            break
        end
    end
    return table.concat(parts)
end

-- The head of a unit, up to behind its bracket.  False, and what was read, if a `)` stood in its place.
function Pml:head(unit)
    self:skip()
    if self.at > #self.text then self:fail("a unit is missing") end
    local name = self:words(":()", "")
    unit.name = unit.name .. name
    if self.text:sub(self.at, self.at) == ")" then return false, name end
    if self.text:sub(self.at, self.at) == ":" then
        self.at = self.at + 1
        self:skip()
        unit.type = self:words("()", " ")
        if self.text:sub(self.at, self.at) == ")" then return false, name .. ":" .. unit.type end
    end
    if self.text:sub(self.at, self.at) ~= "(" then self:fail("the bracket of the unit " .. unit.name .. " is missing") end
    self.at = self.at + 1
    self:skip()
    return true
end

local function new_unit(name)
    return { name = name, type = "", parts = {}, children = {} }
end

-- The text that a unit holds outside its children; joined when it is asked for, as each part would be copied with those ahead of it.
local function value_of(unit)
    if #unit.parts > 1 then unit.parts = { table.concat(unit.parts) } end
    return unit.parts[1] or ""
end

local function add_value(unit, text)
    unit.parts[#unit.parts + 1] = text
end

local blanks = { [0x20] = true, [0x09] = true, [0x0D] = true, [0x0A] = true }

-- A pattern that ends in blanks would look at a run of them again from each of its blanks.
local function without_blanks_behind(text)
    local last = #text
    while last > 0 and blanks[text:byte(last)] do
        last = last - 1
    end
    return text:sub(1, last)
end

function Pml:quoted_value(unit)
    local quote = self.text:sub(self.at, self.at)
    local at = self.at + 1
    local parts = {}
    while at <= #self.text do
        local c = self.text:sub(at, at)
        if c == quote then break end
        if c == "^" then
            parts[#parts + 1] = self.text:sub(at + 1, at + 1)
            at = at + 2
        else
            local last = select(2, self.text:find("^[^\"'^]+", at)) or at
            parts[#parts + 1] = self.text:sub(at, last)
            at = last + 1
        end
    end
    add_value(unit, table.concat(parts))
    self.at = at + 1
    self:skip()
end

function Pml:close(open)
    self.at = self.at + 1
    local closed = table.remove(open)
    local around = open[#open]
    if around then
        around.parts = {}
        around.children[#around.children + 1] = closed
        self:skip()
    end
end

-- The value of a unit with all that lies below, with a list of the open ones in the place of recursion.
function Pml:value(unit)
    local open = { unit }
    while #open > 0 do
        if self.at > #self.text then self:fail("the closing bracket of the unit " .. open[#open].name .. " is missing") end
        local around = open[#open]
        local c = self.text:sub(self.at, self.at)
        if c == ")" then
            self:close(open)
        elseif c == '"' or c == "'" then
            self:quoted_value(around)
        elseif c == ":" or c == "(" and not self:at_comment() then
            local child = new_unit(without_blanks_behind(value_of(around)))
            local complete, text = self:head(child)
            if complete then
                open[#open + 1] = child
            else
                add_value(around, text)
                self:close(open)
            end
        else
            add_value(around, self:words(":()\"'", " "))
        end
    end
end

-- The units of a text.  An error is a table of line, column and text.
local function read_pml(text)
    local reader = setmetatable({ text = text, at = 1 }, Pml)
    local units = {}
    reader:skip()
    while reader.at <= #text do
        local unit = new_unit("")
        if not reader:head(unit) then reader:fail("a ) too many") end
        reader:value(unit)
        units[#units + 1] = unit
        reader:skip()
    end
    return units
end

-- Templates -----------------------------------------------------------------------------------------------------------

local widths = {
    bool = 1, int8 = 1, uint8 = 1, int16 = 2, uint16 = 2, int32 = 4, uint32 = 4, float = 4, enum = 4,
    int64 = 8, uint64 = 8, double = 8, time = 8,
}
local texts = { string = true, wstring = true, u8string = true }
-- In the order in which a text is held against them.
local kind_names = {
    "array", "array2d", "array3d", "bool", "bytes", "char", "double", "enum", "float", "int16", "int32", "int64", "int8",
    "list", "map", "null", "object", "optional", "ref", "ref_list", "string", "time", "u8string", "uint16", "uint32",
    "uint64", "uint8", "union", "unknown", "wchar", "wstring",
}
local composed = {
    array = true, array2d = true, array3d = true, enum = true, list = true, map = true, object = true, optional = true,
    ref = true, ref_list = true, union = true,
}
local alias_names = {
    "Boolean", "Byte", "Double", "Float", "Integer", "Long", "Longlong", "Sbyte", "Short", "Ubyte", "Uinteger", "Ulong",
    "Ulonglong", "Ushort", "boolean", "byte", "int", "long", "longlong", "sbyte", "short", "ubyte", "uint", "ulong",
    "ulonglong", "ushort",
}
local aliases = {
    boolean = "bool", byte = "int8", sbyte = "int8", short = "int16", int = "int32", long = "int64", longlong = "int64",
    ubyte = "uint8", ushort = "uint16", uint = "uint32", ulong = "uint64", ulonglong = "uint64", Boolean = "bool",
    Byte = "int8", Sbyte = "int8", Short = "int16", Integer = "int32", Long = "int64", Longlong = "int64",
    Ubyte = "uint8", Ushort = "uint16", Uinteger = "uint32", Ulong = "uint64", Ulonglong = "uint64", Float = "float",
    Double = "double",
}

-- One layer of a type's text: its kind, and the text between its braces.
local function read_layer(text)
    local kind, optional = nil, false
    text = text:gsub("%[[^%[%]]*%]$", "")
    if text == "" then return { kind = "string", optional = true } end
    if text:sub(-1) == "?" then
        text = text:sub(1, -2)
        optional = true
    end
    for _, name in ipairs(kind_names) do
        if text:sub(1, #name) == name then
            if not composed[name] then return { kind = name, optional = optional } end
            local inner = text:match("^{(.+)}$", #name + 1)
            if inner then return { kind = name, optional = optional, inner = inner } end
        end
    end
    for _, name in ipairs(alias_names) do
        if text:sub(1, #name) == name then
            kind = aliases[name]
            return { kind = kind, optional = optional or name:sub(1, 1):match("%u") ~= nil }
        end
    end
    return { kind = "ref", optional = optional, name = text }
end

-- optional{T} is T, however often: the braces are taken off from both ends.
local function without_optional(text)
    local first, last, optional = 1, #text, false
    while text:sub(first, first + 8) == "optional{" do
        local close = text:sub(last, last) == "?" and last - 1 or last
        if text:sub(close, close) ~= "}" or close - first <= 9 then break end
        first, last, optional = first + 9, close - 1, true
    end
    return text:sub(first, last), optional
end

local function trimmed(text)
    return text:match("^%s*(.-)%s*$")
end

-- What a field of this type holds: kind, optional, name (of a class or enum), element and key (kinds).
local function read_type(text)
    local inner, optional = without_optional(text)
    local type = read_layer(inner)
    type.optional = type.optional or optional
    if type.kind == "enum" or type.kind == "ref" or type.kind == "object" then
        type.name = type.name or type.inner
        type.kind = type.kind == "object" and "ref" or type.kind
    elseif type.kind == "map" then
        local key, value = type.inner:match("^([^,]*),(.*)$")
        if key then
            type.key = read_layer(trimmed(key)).kind
            type.inner = trimmed(value)
        end
    end
    if (type.kind == "list" or type.kind == "map") and type.inner then
        local element = read_layer(type.inner)
        type.element = element.kind
        type.name = element.name or element.inner or element.kind
    end
    return type
end

-- The type as the tool writes it.
local function type_text(type)
    local text = type.kind
    if type.kind == "ref" then
        text = type.name
    elseif type.kind == "list" and type.element == "ref" and type.listOfRefs then
        text = "ref_list{" .. type.name .. "}"
    elseif type.kind == "list" or type.kind == "enum" then
        text = type.kind .. "{" .. (type.name or "") .. "}"
    elseif type.kind == "map" then
        text = "map{" .. (type.key and type.key .. "," or "") .. (type.name or "") .. "}"
    end
    return name_text(text .. (type.optional and "?" or ""))
end

local function is_directive(unit)
    return unit.name:sub(1, 2) == "__"
end

local function directive(unit, name)
    for _, child in ipairs(unit.children) do
        if child.name == name then return value_of(child) end
    end
end

local function members_of(unit)
    local members = {}
    for _, child in ipairs(unit.children) do
        if not is_directive(child) then
            -- Of two with one number the first is shown, as the tool does.
            local number = tonumber(value_of(child)) or -1
            members[number] = members[number] or name_text(child.name)
        end
    end
    return members
end

-- The mask of a protected field; nil if it is none.
local function mask_of(value)
    if value == "{***}" then return "***" end
    return value:match("^{(%.[^}]*)}")
end

local function new_class(unit, type_name)
    local name = directive(unit, "__class__") or type_name:gsub("%.", "$")
    local class = { name = name, super = directive(unit, "__super__"), fields = {}, classes = {}, enums = {} }
    local code = directive(unit, "__code__")
    code = code and tonumber(code:match("^0[xX](%x+)$") or code, 16)
    if code and code >= 0 and code < 0xFFFF then class.code = code end
    return class
end

-- The type of a list's or map's element that stands as a child, which may declare its class there.
local function take_element(class, field, unit, work)
    local child
    for _, each in ipairs(unit.children) do
        if not is_directive(each) then
            child = each
            break
        end
    end
    if not child then return end
    local type = read_type(child.type)
    if #child.children == 0 then
        field.element = type.kind
        field.name = type.name or type.kind
    elseif type.kind == "enum" then
        field.element = "enum"
        field.name = directive(child, "__class__") or type.name
        class.enums[field.name] = members_of(child)
    else
        local nested = new_class(child, type.name or "")
        field.element = "ref"
        field.name = nested.name
        class.classes[nested.name] = nested
        work[#work + 1] = { class = nested, unit = child }
    end
end

local function take_field(class, unit, work)
    local tag, name = unit.name:match("^%[([^%]]*)%](.*)$")
    local field = read_type(unit.type)
    field.label = name_text(name or unit.name)
    local value = #unit.children == 0 and value_of(unit):gsub("{%*[^*].*$", "") or ""
    field.mask = mask_of(value)
    if value == "null" then field.optional = true end
    if value == "true" or value == "false" then field.kind = "bool" end
    if #unit.children > 0 then
        if field.kind == "enum" then
            field.name = directive(unit, "__class__") or field.name
            class.enums[field.name or ""] = members_of(unit)
        elseif field.kind == "list" or field.kind == "map" or unit.type:match("^list") or unit.type:match("^map") then
            field.kind = unit.type:match("^map") and "map" or "list"
            take_element(class, field, unit, work)
        elseif field.kind == "ref" then
            local nested = new_class(unit, field.name == "object" and "" or field.name or "")
            field.name = nested.name
            -- A mention of a class that is declared elsewhere has nothing but its name.
            local declares = nested.super ~= nil or nested.code ~= nil
            for _, child in ipairs(unit.children) do
                declares = declares or not is_directive(child)
            end
            if declares then
                class.classes[nested.name] = nested
                work[#work + 1] = { class = nested, unit = unit }
            end
        end
    end
    tag = tonumber(tag or "0") or 0
    class.fields[tag] = class.fields[tag] or field
end

-- The classes of a template: by name, and by code.
local function read_template(text)
    local model = { classes = {}, codes = {}, enums = {} }
    -- In the order of the text: of two classes with one code the later one is taken, as the library does.
    local order = {}
    -- What waits to be read, in the place of recursion.
    local work = {}
    for _, unit in ipairs(read_pml(text)) do
        local type = read_layer(unit.type)
        local type_name = type.name or type.inner or ""
        if unit.name == "__global__" then
            type_name = ""
        elseif type.kind == "enum" then
            model.enums[directive(unit, "__class__") or type_name] = members_of(unit)
        else
            local class = new_class(unit, type_name ~= "object" and type_name or "")
            if class.name ~= "" then
                model.classes[class.name] = class
                order[#order + 1] = class
                work[#work + 1] = { class = class, unit = unit }
            end
        end
    end
    while #work > 0 do
        local next = table.remove(work)
        for _, child in ipairs(next.unit.children) do
            if not is_directive(child) then take_field(next.class, child, work) end
        end
    end
    for _, class in ipairs(order) do
        if class.code and model.classes[class.name] == class then model.codes[class.code] = class end
    end
    return model
end

-- Of a template without any class nothing is told otherwise, whatever was meant.
local function is_empty(template)
    return next(template.classes) == nil
end

local no_template = { classes = {}, codes = {}, enums = {} }
local model = no_template
-- Why there is none although one was named.
local template_fault = nil

local function load_template(path)
    model, template_fault = no_template, nil
    if path == "" then return end
    local file, reason = io.open(path, "rb")
    local text = file and file:read(largest_template + 1)
    if file then file:close() end
    if not file then
        template_fault = tostring(reason)
    elseif not text then
        template_fault = path .. ": is empty, or can't be read"
    elseif #text > largest_template then
        template_fault = path .. ": is larger than 64 MiB"
    else
        local good, result = pcall(read_template, (text:gsub("%z.*$", "")))
        if good and is_empty(result) then
            template_fault = path .. ": has no class"
        elseif good then
            model = result
        elseif type(result) == "table" then
            template_fault = string.format("%s:%d:%d: %s", path, result.line, result.column, name_text(result.text))
        else
            template_fault = path .. ": " .. tostring(result)
        end
    end
end

local function find_class(name, current)
    if not name then return nil end
    if current then
        if current.classes[name] then return current.classes[name] end
        if current.name == name then return current end
    end
    return model.classes[name]
end

-- The field with this tag, of the class or the nearest base that has it.  Bases that form a ring are looked at once.
local function find_field(class, tag)
    local known = {}
    while class and not known[class] do
        known[class] = true
        if class.fields[tag] then return class.fields[tag], class end
        class = find_class(class.super, class)
    end
end

local function find_enum(name, class)
    local known = {}
    while class and not known[class] do
        known[class] = true
        if class.enums[name] then return class.enums[name] end
        class = find_class(class.super, class)
    end
    return model.enums[name]
end

-- Values --------------------------------------------------------------------------------------------------------------

local function masked(data, mask)
    local before, stars, after = mask:match("^(%.*)(%**)(%.*)")
    local rest = data:sub(#before + 1)
    local shown = data:sub(1, #before) .. stars .. (#after > 0 and rest:sub(-math.min(#after, #rest)) or "")
    if #after > 0 and #rest == 0 then shown = data:sub(1, #before) .. stars end
    return name_text(shown) .. "[" .. #data .. "]"
end

local function time_text(text, value)
    local seconds = math.floor(value / 1000)
    -- From the year 1 to 9999.
    if seconds < -62135596800 or seconds > 253402300799 then return text end
    -- Days since 1970-03-01 of a calendar whose years begin with March.
    local days = math.floor(seconds / 86400)
    local rest = seconds - days * 86400
    local shifted = days + 719468
    local era = math.floor(shifted / 146097)
    local day_of_era = shifted - era * 146097
    local year = math.floor((day_of_era - math.floor(day_of_era / 1460) + math.floor(day_of_era / 36524) -
        math.floor(day_of_era / 146096)) / 365)
    local day = day_of_era - (365 * year + math.floor(year / 4) - math.floor(year / 100))
    local month = math.floor((5 * day + 2) / 153)
    local date = string.format("%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", year + era * 400 + (month >= 10 and 1 or 0),
        month < 10 and month + 3 or month - 9, day - math.floor((153 * month + 2) / 5) + 1, math.floor(rest / 3600),
        math.floor(rest / 60) % 60, rest % 60, value - seconds * 1000)
    return text .. " (" .. date .. ")"
end

local function float_of(data, size, format)
    local full = data:sub(1, size) .. string.rep("\0", size - #data)
    local value = Struct.unpack(size == 4 and "<f" or "<d", full)
    return string.format(format, value), value
end

-- The text of a value, the field that filters find it by, and what they compare.
local function typed_value(data, kind, members)
    if data == "" and kind ~= "string" then return "(no data)" end
    local width = widths[kind]
    if kind == "bool" then
        local value = data:find("[^\0]") ~= nil
        return tostring(value), f.number, Int64.new(value and 1 or 0)
    elseif kind == "float" or kind == "double" then
        local text, value = float_of(data, width, kind == "float" and "%.9g" or "%.17g")
        return text, f.real, value
    elseif width then
        local text, value = integer(data, width, kind:sub(1, 1) ~= "u")
        if kind == "uint64" and #data >= width and data:byte(width) >= 0x80 then
            -- As a number with a sign it would be a negative one.
            return text, f.unsigned, UInt64.new(little_endian(data, 1, 4), little_endian(data, 5, 4))
        end
        if kind == "time" then
            text = time_text(text, value:tonumber())
        elseif kind == "enum" and members and members[value:tonumber()] then
            text = text .. " (" .. members[value:tonumber()] .. ")"
        end
        return text, f.number, value
    elseif kind == "bytes" then
        return bytes_text(data), f.bytes, bytes_text(data)
    end
    return quoted(data), f.text, name_text(data)
end

-- The same without a type.
local function plain_value(data, is_text)
    if is_text then return quoted(data), f.text, name_text(data) end
    if data == "" or #data > 8 then return bytes_text(data), f.bytes, bytes_text(data) end
    local text, value = integer(data, 8, false)
    if data:byte(-1) >= 0x80 and (#data == 4 or #data == 8) then
        text = text .. " or " .. integer(data, #data, true)
    end
    return text, f.number, value
end

local function plain_type(data, is_text)
    return is_text and "text" or (#data > 8 or data == "") and "bytes" or "number"
end

-- What is odd in data of this kind; `members` are those of an enum, as far as the template has it.
local function oddness(data, is_text, kind, members, enum)
    local width = widths[kind]
    if is_text and width then return "text where the template has " .. kind end
    -- The library writes a negative int8 with the byte of its sign.
    if kind == "int8" and #data == 2 and data:byte(2) == 0xFF then return end
    if width and #data > width then return plural(#data, "byte") .. " where " .. kind .. " has " .. width end
    if texts[kind] and not is_text then return "bytes where the template has " .. kind end
    if members and data ~= "" and not members[select(2, integer(data, width, true)):tonumber()] then
        return "no member of " .. name_text(enum)
    end
end

-- NBR -----------------------------------------------------------------------------------------------------------------

-- Shows a document: bytes from `first` to before `last` of `view`, offsets from 0.  A view has `tvb`, `raw` (its bytes),
-- `origin` (where the frame begins, from which places are told), and `left` (how many items may still be made).
local Document = {}
Document.__index = Document

-- The item that what comes next stands under.
function Document:parent()
    return self.open[math.min(#self.open, deepest)].item
end

function Document:broken(at, text)
    local range = self.view.tvb:range(at, 0)
    add_text(self:parent(), f.note, range, "broken here: " .. text):add_proto_expert_info(e.broken, text)
    return false
end

function Document:member_spot(context, tag)
    local spot = { name = "[" .. tag .. "]", around = context.class }
    if context.holds == "named" and context.names[tag] then
        spot.name = spot.name .. " " .. context.names[tag]
    elseif context.class then
        spot.field, spot.owner = find_field(context.class, tag)
        if spot.field then
            spot.name = spot.name .. " " .. spot.field.label
            spot.kind = spot.field.kind
            spot.type = type_text(spot.field)
            spot.class = spot.field.name
        else
            spot.note = "no field of " .. name_text(context.class.name) .. " has this tag"
        end
    end
    return spot
end

-- What is known of the value that comes next, and the field that protects it: its own, or one that it stands below.
function Document:spot(tag)
    local guard = self.open[#self.open].guard
    local spot = self:place(tag)
    spot.guard = guard or spot.field and spot.field.mask and spot.field or nil
    return spot
end

function Document:place(tag)
    local context = self.open[#self.open]
    context.index = context.index + 1
    local holds = context.holds
    if holds == "members" or holds == "named" then return self:member_spot(context, tag) end
    local spot = { name = "", field = context.field, around = context.class }
    if holds == "old" then
        spot.name = names.old[context.index] or ""
        spot.note = not names.old[context.index] and "a packet has nine values" or nil
        spot.old = context.index
    elseif holds == "elements" then
        spot.name = "-"
        spot.kind, spot.type, spot.class = context.kind, context.kind == "ref" and "object" or context.kind, context.name
    elseif holds == "entries" then
        spot.name = "-"
    elseif holds == "entry" then
        spot.name = tag == 1 and "key" or tag == 2 and "value" or "[" .. tag .. "]"
        if tag == 1 and context.field then
            spot.kind, spot.type = context.field.key, context.field.key
        elseif tag == 2 then
            spot.kind, spot.type, spot.class = context.kind, context.kind == "ref" and "object" or context.kind, context.name
        end
    end
    return spot
end

-- What the complex value at this spot holds, and what it is called.
function Document:context(spot)
    local around = self.open[#self.open]
    if around.holds == "values" then
        local class = around.class
        return { holds = around.names and "named" or "members", names = around.names, class = class, index = 0 },
            class and name_text(class.name) or "object"
    end
    if around.holds == "entries" then
        return { holds = "entry", class = around.class, field = around.field, kind = around.kind, name = around.name,
            index = 0 }, "entry"
    end
    if spot.kind == "list" or spot.kind == "map" then
        local field = spot.field
        return { holds = spot.kind == "map" and "entries" or "elements", class = spot.owner or spot.around, field = field,
            kind = field.element, name = field.name, index = 0 }, spot.type
    end
    local class = spot.kind == "ref" and find_class(spot.class, spot.owner or spot.around) or nil
    return { holds = "members", class = class, index = 0 },
        class and name_text(class.name) or spot.kind == "ref" and spot.type or "object"
end

-- What is odd in a simple value at a place of what holds others.
function Document:not_here(data, is_text, spot)
    local context = self.open[#self.open]
    local what = is_text and "text" or (data == "" or #data > 8) and "bytes" or "a number"
    if context.holds == "entries" then return what .. " where a map has an entry" end
    if context.holds == "values" and context.class and not context.names then
        return what .. " where " .. name_text(context.class.name) .. " is expected"
    end
    if not spot.field or not spot.kind then return nil end
    local is_class = context.holds ~= "members" and spot.kind == "ref" and spot.class
    return what .. " where the template has " .. (is_class and name_text(spot.class) or spot.type)
end

function Document:add_name(item, range, spot)
    if spot.field and spot.field.label and spot.name:sub(1, 1) == "[" then
        item:add(f.field, range, spot.field.label):set_hidden(true)
        self.view.left = self.view.left - 1
    end
end

-- Of what is protected all is masked but numbers where the template has them: what else stands there may be as secret as
-- what it has taken the place of.
local function is_masked(data, is_text, kind, guard)
    if not guard or tav.prefs.reveal then return false end
    return not (kind and widths[kind] and not is_text and not oddness(data, is_text, kind))
end

function Document:show_value(begin, data_at, data, is_text, is_null, spot)
    if (spot.old == old_body or spot.old == old_option) and data ~= "" then
        return self:show_carrier(begin, data_at, data, spot)
    end
    local view = self.view
    local range = view.tvb:range(begin, data_at + #data - begin)
    local kind = spot.field and spot.kind or nil
    local text, field, value, note
    local type = spot.type
    if is_null then
        text, field = "null", f.null
    elseif is_masked(data, is_text, kind, spot.guard) then
        text = masked(data, spot.guard.mask)
        field, value = f.text, text
        if not kind or composed[kind] and kind ~= "enum" then
            note = spot.note or self:not_here(data, is_text, spot)
            type = kind and type or plain_type(data, is_text)
        end
    elseif kind and not composed[kind] or kind == "enum" then
        local members = kind == "enum" and find_enum(spot.class, spot.owner or spot.around) or nil
        text, field, value = typed_value(data, kind, members)
        note = oddness(data, is_text, kind, members, spot.class)
    else
        text, field, value = plain_value(data, is_text)
        note = spot.note or self:not_here(data, is_text, spot)
        type = kind and type or plain_type(data, is_text)
    end
    note = note or spot.note
    local name = spot.name ~= "" and spot.name .. ": " or ""
    local label = name .. (is_null and (spot.type and spot.type .. " " or "") or (type or "") .. " ") .. text
    if note then label = label .. "  (" .. note .. ")" end
    field = field or f.null
    local item
    if value ~= nil then
        item = self:parent():add(field, range, value, label)
    else
        item = add_text(self:parent(), field, range, label)
    end
    view.left = view.left - 1
    if note then item:add_proto_expert_info(e.odd, note) end
    self:add_name(item, range, spot)
    self:remember_old(spot, data_at, data, is_null)
    return item
end

-- Of an old packet: what it has in the places of code, body and option.
function Document:remember_old(spot, data_at, data, is_null, item)
    if spot.old and not is_null then
        self.old[names.old[spot.old] or ""] = { at = data_at, data = data, item = item }
    end
end

-- The body and the option of an old packet hold documents of their own, which stand below them.  Their bytes have what a
-- template may protect: here there is their number alone.
function Document:show_carrier(begin, data_at, data, spot)
    local range = self.view.tvb:range(begin, data_at + #data - begin)
    local item = add_text(self:parent(), f.complex, range, spot.name .. ": " .. plural(#data, "byte"))
    self.view.left = self.view.left - 1
    self:remember_old(spot, data_at, data, false, item)
end

function Document:open_value(begin, at, spot)
    local context, what = self:context(spot)
    local view = self.view
    local range = view.tvb:range(begin, at + 3 - begin)
    local label = (spot.name ~= "" and spot.name .. ": " or "") .. what
    local note = spot.note
    if spot.field and spot.kind and (not composed[spot.kind] or spot.kind == "enum") then
        note = "an object where the template has " .. spot.kind
    end
    if note then label = label .. "  (" .. note .. ")" end
    if #self.open >= deepest then label = label .. "  (at depth " .. #self.open .. ")" end
    context.item = add_text(self:parent(), f.complex, range, label)
    context.begin = begin
    context.guard = spot.guard
    view.left = view.left - 1
    if note then context.item:add_proto_expert_info(e.odd, note) end
    self:add_name(context.item, range, spot)
    self.open[#self.open + 1] = context
    return at + 3
end

function Document:close_value(at)
    local closed = table.remove(self.open)
    if #self.open < deepest then closed.item:set_len(at + 3 - closed.begin) end
    return at + 3
end

-- The value at `at`; where the next one stands, or nil if it is broken.
function Document:read_value(at)
    local raw, last = self.view.raw, self.last
    local begin, tag = at, nil
    if #self.open > 1 then
        tag = raw:byte(at + 1)
        tag = tag < 128 and tag or tag - 256
        at = at + 1
        if at == last then
            self:broken(at, "the value of the tag " .. tag .. " is missing")
            return nil
        end
    end
    local head = raw:byte(at + 1)
    if head == 0xFF then
        local marker = at + 3 <= last and raw:sub(at + 2, at + 3) or ""
        if marker == "\1\40" then return self:open_value(begin, at, self:spot(tag)) end
        self:broken(at, marker == "\1\41" and "a close marker where no object is open" or
            "FF begins a marker, FF 01 28 or FF 01 29, and no other value")
        return nil
    end
    local size_length = head % 16
    if head >= 0x10 and head < 0xF0 or size_length > 4 then
        self:broken(at, string.format("no value begins with %02X: 00 and F0 are null, 01 to 04 bytes, F1 to F4 text, " ..
            "FF 01 28 opens an object", head))
        return nil
    end
    local data_at = at + 1 + size_length
    if data_at > last then
        self:broken(last, string.format("the size of the value at byte %d has %s, and the input ends within",
            at - self.view.origin, plural(size_length, "byte")))
        return nil
    end
    local size = little_endian(raw, at + 2, size_length)
    local left = last - data_at
    local data = raw:sub(data_at + 1, data_at + math.min(size, left))
    self:show_value(begin, data_at, data, head >= 0xF0, size_length == 0, self:spot(tag))
    if size > left then
        self:broken(last, string.format("the value at byte %d says that it has %s, and %s there", at - self.view.origin,
            plural(size, "byte"), left == 1 and "1 is" or left .. " are"))
        return nil
    end
    return data_at + size
end

function Document:read()
    local at = self.first
    while at < self.last do
        if self.view.left <= 0 then
            local text = plural(self.last - at, "byte") .. " more, not shown"
            add_text(self:parent(), f.note, self.view.tvb:range(at, self.last - at), text):add_proto_expert_info(e.unshown, text)
            return true
        end
        if #self.open > 1 and self.view.raw:sub(at + 1, math.min(at + 3, self.last)) == "\255\1\41" then
            at = self:close_value(at)
        else
            at = self:read_value(at)
            if not at then return false end
        end
    end
    if #self.open > 1 then
        local count = #self.open - 1
        return self:broken(at, "the close marker FF 01 29 of " .. (count == 1 and "an object" or count .. " objects") ..
            " is missing")
    end
    return true
end

-- Shows a document below `item`; false if it is broken.  `root` says what its values are.
local function show_document(view, first, last, item, root)
    root.item, root.index, root.holds = item, 0, root.holds or "values"
    local document = setmetatable({ view = view, first = first, last = last, open = { root }, old = {} }, Document)
    return document:read(), document.old
end

-- Gate messages -------------------------------------------------------------------------------------------------------

local function named(value, known, other)
    local signed = value < 128 and value or value - 256
    return value .. " (" .. (known[value] or other .. "~" .. signed) .. ")"
end

local function show_gate_part(view, name, protocol, first, last, item)
    local range = view.tvb:range(first, last - first)
    local data = view.raw:sub(first + 1, last)
    if first == last then
        item:add(g.bytes, range, "", name .. ": 0 bytes")
    elseif protocol == 3 then
        local part = add_text(item, f.complex, range, name .. ": " .. plural(last - first, "byte"))
        show_document(view, first, last, part, {})
    elseif protocol == 1 or protocol > 3 and protocol < 8 then
        item:add(g.text, range, name_text(data), name .. ": " .. quoted(data))
    else
        local text = bytes_text(data)
        item:add(g.bytes, range, text, name .. ": " .. text)
    end
end

-- A gate message from `first` to before `last`; the text that the column gets.
local function show_gate(view, first, last, item)
    local size = last - first
    if size < gate_head then
        local text = "a gate message has a header of 12 bytes, and " .. size .. (size == 1 and " is" or " are") .. " there"
        item:add_proto_expert_info(e.broken, text)
        add_text(item, f.note, view.tvb:range(first, size), "broken here: " .. text)
        return "broken gate message"
    end
    local raw, tvb = view.raw, view.tvb
    local at = first + 1
    local protocol, direction = raw:byte(at), raw:byte(at + 3)
    local type, sequence = big_endian(raw, at + 1, 2), big_endian(raw, at + 4, 4)
    sequence = sequence < 2 ^ 31 and sequence or sequence - 2 ^ 32
    local head = big_endian(raw, at + 10, 2)
    local protocol_text, direction_text = named(protocol, names.protocol, "PROTOCOL"), named(direction, names.direction, "DIRECTION")
    item:add(g.protocol, tvb:range(first, 1), protocol, "protocol: " .. protocol_text)
    item:add(g.type, tvb:range(first + 1, 2), type, string.format("type: 0x%x", type))
    item:add(g.direction, tvb:range(first + 3, 1), direction, "direction: " .. direction_text)
    item:add(g.sequence, tvb:range(first + 4, 4), sequence, string.format("sequence: %d", sequence))
    item:add(g.extras, tvb:range(first + 8, 2)):set_text("extras: " .. hex_text(raw:sub(at + 8, at + 9)))
    item:add(g.head_size, tvb:range(first + 10, 2), head, "size of the head: " .. head)
    local body = math.min(last, first + gate_head + head)
    show_gate_part(view, "head", protocol, first + gate_head, body, item)
    local there = body - first - gate_head
    if there < head then
        local text = "the head has " .. plural(head, "byte") .. ", and " .. there .. (there == 1 and " is" or " are") .. " there"
        add_text(item, f.note, tvb:range(body, 0), "broken here: " .. text):add_proto_expert_info(e.broken, text)
    else
        show_gate_part(view, "body", protocol, body, last, item)
    end
    return string.format("%s %s 0x%04X seq %d", names.protocol[protocol] or "gate message",
        names.direction[direction] or "?", type, sequence)
end

-- Packets -------------------------------------------------------------------------------------------------------------

local Packet = {}
Packet.__index = Packet

function Packet:broken(at, text)
    add_text(self.item, f.note, self.view.tvb:range(at, 0), "broken here: " .. text):add_proto_expert_info(e.broken, text)
    return false
end

-- A number of the head; nil if the packet ends within.
function Packet:number(size, name)
    local there = self.last - self.at
    if there < size then
        self:broken(self.last, name .. " has " .. plural(size, "byte") .. ", and " .. there .. (there == 1 and " is" or " are") ..
            " there")
        return nil
    end
    self.at = self.at + size
    return big_endian(self.view.raw, self.at - size + 1, size), self.view.tvb:range(self.at - size, size)
end

function Packet:show(field, range, value, text)
    self.view.left = self.view.left - 1
    return self.item:add(field, range, value, text)
end

function Packet:code(value, range)
    local class = model.codes[value]
    local text = string.format("0x%04X", value)
    self.name = class and name_text(class.name) or text
    self:show(f.code, range, value, "code: " .. text .. (class and " (" .. self.name .. ")" or ""))
    if class then
        self:show(f.class, range, self.name, "class: " .. self.name):set_hidden(true)
    end
    return class
end

-- What the body is, as far as the bytes, the template and the user tell.
function Packet:body(class, first, last, label)
    local view = self.view
    local size = last - first
    local range = view.tvb:range(first, size)
    local text = label .. ": " .. plural(size, "byte")
    if tav.prefs.body == 1 and size > 0 then
        local item = self.item:add(gate, range, text .. ", a gate message")
        self.name = self.name .. " [" .. show_gate(view, first, last, item) .. "]"
        return true
    end
    if size > 0 and (class or view.raw:sub(first + 1, first + 3) == "\255\1\40") then
        -- The field would give away, to filters and exports, what the template protects.
        local field = class and not tav.prefs.reveal and f.complex or f.body
        return (show_document(view, first, last, add_text(self.item, field, range, text), { class = class }))
    end
    if size > 0 then text = text .. ": " .. bytes_text(view.raw:sub(first + 1, last)) end
    self.item:add(f.body, range):set_text(text)
    return true
end

-- The same for the body of an old packet, below its value.
function Packet:old_body(class, body)
    local first, last = body.at, body.at + #body.data
    local range = self.view.tvb:range(first, #body.data)
    if tav.prefs.body == 1 then
        local item = body.item:add(gate, range, "a gate message")
        self.name = self.name .. " [" .. show_gate(self.view, first, last, item) .. "]"
        return true
    end
    if class or body.data:sub(1, 3) == "\255\1\40" then
        return (show_document(self.view, first, last, body.item, { class = class }))
    end
    body.item:add(f.body, range):set_text(plural(#body.data, "byte") .. ": " .. bytes_text(body.data))
    return true
end

function Packet:extension()
    local size, range = self:number(2, "size of the extension")
    if not size then return false end
    self:show(f.extension, range, size, "size of the extension: " .. size)
    local there = math.min(size, self.last - self.at)
    if there > 0 and not show_document(self.view, self.at, self.at + there, self.item, { names = names.extension }) then
        return false
    end
    self.at = self.at + there
    if there < size then
        return self:broken(self.at, "the extension has " .. plural(size, "byte") .. ", and " .. there ..
            (there == 1 and " is" or " are") .. " there")
    end
    return true
end

function Packet:mobile()
    local version, range = self:number(2, "version")
    if not version then return false end
    self:show(f.version, range, version, "version: " .. version)
    local affirm
    affirm, range = self:number(1, "affirm")
    if not affirm then return false end
    local meaning = names.affirm[affirm]
    self:show(f.affirm, range, affirm, string.format("affirm: 0x%x", affirm) .. (meaning and " (" .. meaning .. ")" or ""))
    local code
    code, range = self:number(2, "code")
    if not code then return false end
    local class = self:code(code, range)
    local flags
    flags, range = self:number(1, "flags")
    if not flags then return false end
    self:show(f.flags, range, flags, string.format("flags: 0x%x", flags) .. (flags % 2 == 1 and " (grey)" or ""))
    local sequence
    sequence, range = self:number(2, "sequence")
    if not sequence then return false end
    self:show(f.sequence, range, sequence, "sequence: " .. sequence)
    self.name = (affirm == 0x30 and "receipt of " or "") .. self.name .. " seq " .. sequence
    local session
    session, range = self:number(8, "session")
    if not session then return false end
    self.view.left = self.view.left - 1
    self.item:add(f.session, range):set_text("session: 0x" ..
        hex_text(self.view.raw:sub(self.at - 7, self.at)):gsub(" ", ""):lower():gsub("^0+(.)", "%1"))
    if version >= 6 and not self:extension() then return false end
    if affirm == 0x30 and self.at == self.last then class = nil end
    return self:body(class, self.at, self.last, "body")
end

function Packet:old()
    local head, range = self:number(4, "head")
    if not head then return false end
    self.view.left = self.view.left - 1
    self.item:add(f.bytes, range, hex_text(self.view.raw:sub(self.at - 3, self.at)),
        "head: " .. hex_text(self.view.raw:sub(self.at - 3, self.at)))
    if head >= 256 then return self:broken(self.at - 4, "the head of an old packet begins with three zeros") end
    local root = { holds = "old" }
    local good, old = show_document(self.view, self.at, self.last, self.item, root)
    local class
    if old.code and old.code.data ~= "" then
        class = self:code(old.code.data:byte(1), self.view.tvb:range(old.code.at, 1))
    end
    if old.sequence and old.sequence.data ~= "" then
        local text, sequence = integer(old.sequence.data, 4, true)
        self.name = self.name .. " seq " .. text
        self:show(f.sequence, self.view.tvb:range(old.sequence.at, #old.sequence.data), sequence:tonumber(),
            "sequence: " .. text):set_hidden(true)
    end
    if old.body and old.body.data ~= "" and not self:old_body(class, old.body) then return false end
    local option = old.option
    if option and option.data ~= "" then
        local inside = { names = names.option }
        if not show_document(self.view, option.at, option.at + #option.data, option.item, inside) then return false end
    end
    if good and root.index < #names.old then
        return self:broken(self.last, "an old packet has nine values, and " .. root.index ..
            (root.index == 1 and " is" or " are") .. " there")
    end
    return good
end

-- A packet from `first` to before `last`; false if it is broken, and the text that the column gets.
local function show_packet(view, first, last, parent)
    local is_mobile = last - first >= 2 and view.raw:byte(first + 2) ~= 0
    local item = add_text(parent, f.complex, view.tvb:range(first, last - first),
        (is_mobile and "mobile" or "old") .. " packet: " .. plural(last - first, "byte"))
    view.left = view.left - 1
    local packet = setmetatable({ view = view, at = first, last = last, item = item, name = "packet" }, Packet)
    local good
    if is_mobile then good = packet:mobile() else good = packet:old() end
    return good, packet.name
end

-- Frames --------------------------------------------------------------------------------------------------------------

local function add_root(view, range, label)
    local item = view.tree:add(tav, range, label)
    view.left = view.left - 1
    if template_fault and not view.told then
        view.told = true
        item:add_proto_expert_info(e.template, template_fault)
        add_text(item, f.note, view.tvb:range(0, 0), "the template can't be used: " .. template_fault):set_generated(true)
    end
    return item
end

local function show_frame(view, first, length, last)
    view.origin = first
    local range = view.tvb:range(first, last - first)
    if length == 0 then
        local item = add_root(view, range, "heartbeat")
        add_text(item, f.heartbeat, range, "heartbeat"):set_hidden(true)
        return "heartbeat"
    end
    local item = add_root(view, range, "frame: " .. plural(length, "byte"))
    item:add(f.length, view.tvb:range(first, frame_head), length, "length: " .. length)
    local good, name = show_packet(view, first + frame_head, last, item)
    local there = last - first - frame_head
    if good and there < length then
        local text = "the frame has " .. plural(length, "byte") .. ", and " .. there .. (there == 1 and " is" or " are") ..
            " there"
        add_text(item, f.note, view.tvb:range(last, 0), "broken here: " .. text):add_proto_expert_info(e.broken, text)
    end
    return good and name or name .. " (broken)"
end

-- Where bytes are missing: asks for them, if they can be had.  What TLS hands over by its first bytes it counts as a layer
-- more, and says that they can't.
local function want(view, pinfo, at, more)
    if pinfo.can_desegment == 0 and not view.guessed then return false end
    pinfo.desegment_offset = at
    pinfo.desegment_len = more
    return true
end

local function add_to_column(view, text)
    view.shown = view.shown + 1
    if view.shown > most_in_column then return end
    view.column[#view.column + 1] = text
end

local function set_columns(view, pinfo)
    pinfo.cols.protocol = "TAV"
    if view.shown == 0 then return end
    local text = table.concat(view.column, ", ")
    if view.shown > most_in_column then text = text .. ", and " .. view.shown - most_in_column .. " more" end
    -- One packet of the capture may have several records, each with frames: what stands there stays.
    -- TLS leaves no blank behind what it says of the records ahead.
    pinfo.cols.info = (tostring(pinfo.cols.info):find("PDU]", -4, true) and " " or "") .. text .. "  "
    pinfo.cols.info:fence()
end

-- The frames of `view` from its first byte on; how many bytes they took.
local function show_frames(view, pinfo)
    local at, size = 0, #view.raw
    while at < size do
        if size - at < frame_head then
            if want(view, pinfo, at, DESEGMENT_ONE_MORE_SEGMENT) then return at end
            local text = "length has 4 bytes, and " .. size - at .. (size - at == 1 and " is" or " are") .. " there"
            add_root(view, view.tvb:range(at, size - at), "broken frame: " .. text):add_proto_expert_info(e.broken, text)
            return size
        end
        local length = big_endian(view.raw, at + 1, frame_head)
        if length > largest_frame then
            local text = "a frame has at most 16777215 bytes, and this one says " .. string.format("%.0f", length)
            add_root(view, view.tvb:range(at, size - at), "broken frame: " .. text):add_proto_expert_info(e.broken, text)
            add_to_column(view, "broken frame")
            return size
        end
        local last = at + frame_head + length
        if last > size and want(view, pinfo, at, last - size) then return at end
        if view.left <= 0 then
            local text = plural(size - at, "byte") .. " more of frames, not shown"
            add_root(view, view.tvb:range(at, size - at), text):add_proto_expert_info(e.unshown, text)
            return size
        end
        add_to_column(view, show_frame(view, at, length, math.min(last, size)))
        at = math.min(last, size)
    end
    return at
end

local function new_view(tvb, tree)
    return {
        tvb = tvb, tree = tree, raw = tvb:captured_len() > 0 and tvb:raw(0, tvb:captured_len()) or "",
        origin = 0, left = tav.prefs.most_values, shown = 0, column = {},
    }
end

local function dissect(tvb, pinfo, tree, guessed)
    local view = new_view(tvb, tree)
    view.guessed = guessed
    show_frames(view, pinfo)
    set_columns(view, pinfo)
    return tvb:captured_len()
end

function tav.dissector(tvb, pinfo, tree)
    return dissect(tvb, pinfo, tree, false)
end

function gate.dissector(tvb, pinfo, tree)
    local view = new_view(tvb, tree)
    local size = #view.raw
    local item = tree:add(gate, tvb:range(0, size), "gate message: " .. plural(size, "byte"))
    pinfo.cols.protocol = "TAV-GATE"
    pinfo.cols.info = show_gate(view, 0, size, item)
    return size
end

-- Whether the bytes look like the first frame of a connection: a packet of a version and an affirm that there are, or an
-- old one with its first values.
local function looks_like_frames(tvb)
    -- Heartbeats may come ahead of it.
    local first, size = 0, tvb:captured_len()
    while size - first >= frame_head and first < most_heartbeats * frame_head and tvb:range(first, frame_head):uint() == 0 do
        first = first + frame_head
    end
    if size - first < frame_head + 8 then return false end
    local raw = tvb:raw(first, frame_head + 8)
    local length = big_endian(raw, 1, frame_head)
    if length < 16 or length > largest_frame then return false end
    if raw:byte(6) == 0 then
        return raw:sub(5, 7) == "\0\0\0" and raw:sub(9, 10) == "\1\1"
    end
    local affirm = raw:byte(7)
    return raw:byte(5) == 0 and raw:byte(6) <= 32 and (affirm == 0 or names.affirm[affirm] ~= nil)
end

-- The connections that were found to hold frames.  Setting the dissector of a conversation would hand it TLS itself.
local found = {}

tav:register_heuristic("tls", function(tvb, pinfo, tree)
    local stream = tcp_stream()
    stream = stream and stream.value
    if not (stream and found[stream]) and not looks_like_frames(tvb) then return false end
    if stream then found[stream] = true end
    dissect(tvb, pinfo, tree, true)
    return true
end)

local ports = ""
local loaded = nil

-- A template is read when the preference names another one, or anew when the preferences are applied.
local function apply_preferences()
    local tls = DissectorTable.get("tls.port")
    if ports ~= tav.prefs.ports then
        if ports ~= "" then tls:remove(ports, tav) end
        ports = tav.prefs.ports
        if ports ~= "" then tls:add(ports, tav) end
    end
    loaded = tav.prefs.template
    load_template(loaded)
end
tav.prefs_changed = apply_preferences

-- Ahead of each capture.
function tav.init()
    found = {}
    if loaded ~= tav.prefs.template then apply_preferences() end
end

for _, name in ipairs({ "tls.port", "tcp.port" }) do
    DissectorTable.get(name):add_for_decode_as(tav)
end
DissectorTable.get("udp.port"):add_for_decode_as(gate)
DissectorTable.get("tcp.port"):add_for_decode_as(gate)
