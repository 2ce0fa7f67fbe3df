-- Wireshark's view of a CM server's record: requests, answers and events by their names and fields, each request with
-- its answer, each connection with its events.
--
-- A packet is what cm-server puts into *.pcapng: 16 bytes of header, whose numbers have the high byte first, and the
-- bytes as they passed, in the byte order of the machine that they passed on.

local quorvel = Proto("quorvel", "Connection manager")

-- Codes -------------------------------------------------------------------------------------------------------------

local KIND = { [0] = "request", [1] = "answer", [2] = "event", [3] = "note" }
local ARROW = { [0] = "-->", [1] = "<--", [2] = "<==", [3] = "***" }

-- Name, and the code of what answers it; STOP and KILL are answered by an event.
local COMMANDS = {
    [1] = { "NETCM_CLIENT_REGISTER_REQ", 1 },
    [2] = { "NETCM_CLIENT_ASYNC_REGISTER_REQ", 0 },
    [4] = { "NETCM_CLIENT_START_REQ", 101 },
    [5] = { "NETCM_CLIENT_STOP_REQ", 102 },
    [6] = { "NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ", 103 },
    [7] = { "NETCM_CLIENT_TUNNEL_REQ", 104 },
    [8] = { "NETCM_CLIENT_KILL_REQ", 105 },
    [9] = { "NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ", 106 },
    [10] = { "NETCM_CLIENT_GET_STAT_INFO_REQ", 107 },
    [11] = { "NETCM_CLIENT_RESET_STAT_INFO_REQ", 108 },
    [12] = { "NETPM_PROFILE_REQ", 113 },
    [13] = { "NETPM_APPPROF_REQ", 114 },
    [14] = { "NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ", 115 },
    [15] = { "NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ", 116 },
    [16] = { "NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ", 117 },
    [17] = { "NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ", 118 },
    [18] = { "NETCM_CLIENT_REGISTER_TUNNEL_IND_REQ", 119 },
    [19] = { "NETCM_CLIENT_DEREGISTER_TUNNEL_IND_REQ", 120 },
    [20] = { "NETCM_CLIENT_GET_NETWORK_STATUS_REQ", 121 },
    [21] = { "NETCM_CLIENT_GET_NETIFACE_LIST_REQ", 124 },
    [22] = { "NETCM_CLIENT_SET_SETTINGS_REQ", 125 },
    [23] = { "NETCM_CLIENT_GET_SETTINGS_REQ", 126 },
}

local EVENTS = {
    [1] = "NETCM_CLIENT_REGISTER_RSP",
    [101] = "NETCM_CLIENT_START_RSP",
    [102] = "NETCM_CLIENT_STOP_RSP",
    [103] = "NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP",
    [104] = "NETCM_CLIENT_TUNNEL_RSP",
    [105] = "NETCM_CLIENT_KILL_RSP",
    [106] = "NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP",
    [107] = "NETCM_CLIENT_GET_STAT_INFO_RSP",
    [108] = "NETCM_CLIENT_RESET_STAT_INFO_RSP",
    [109] = "NETCM_CLIENT_STOP_IND",
    [110] = "NETCM_CLIENT_SUSPEND_IND",
    [111] = "NETCM_CLIENT_RESUME_IND",
    [112] = "NETCM_CLIENT_TUNNEL_IND",
    [113] = "NETPM_PROFILE_RSP",
    [114] = "NETCM_CLIENT_PROPER_PROFILE_RSP",
    [115] = "NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP",
    [116] = "NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_RSP",
    [117] = "NETCM_CLIENT_GET_PACKET_DATA_STATE_RSP",
    [118] = "NETCM_CLIENT_SET_PACKET_DATA_STATE_RSP",
    [119] = "NETCM_CLIENT_REGISTER_TUNNEL_IND_RSP",
    [120] = "NETCM_CLIENT_DEREGISTER_TUNNEL_IND_RSP",
    [121] = "NETCM_CLIENT_GET_NETWORK_STATUS_RSP",
    [122] = "NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND",
    [123] = "NETCM_CLIENT_IP_CHANGE_IND",
    [124] = "NETCM_CLIENT_GET_NETIFACE_LIST_RSP",
    [125] = "NETCM_CLIENT_SET_SETTINGS_RSP",
    [126] = "NETCM_CLIENT_GET_SETTINGS_RSP",
}

local PM_COMMANDS = {
    [1] = "NETPM_CLIENT_ADD_PROFILE_REQ",
    [2] = "NETPM_CLIENT_MODIFY_PROFILE_REQ",
    [3] = "NETPM_CLIENT_DELETE_PROFILE_REQ",
    [4] = "NETPM_CLIENT_GET_PROFILE_REQ",
    [5] = "NETPM_CLIENT_GET_PROFILE_STATUS_REQ",
    [6] = "NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ",
    [7] = "NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ",
    [8] = "NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ",
    [10] = "NETPM_CLIENT_GET_POFILE_LIST_REQ",
    [13] = "NETPM_CLIENT_RESTORE_PROFILES_REQ",
    [14] = "NETPM_CLIENT_GET_PROFILE_ATTR_REQ",
    [15] = "NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ",
    [16] = "NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ",
    [17] = "NETPM_CLIENT_FIND_PROFILE_IDS_REQ",
}

local APP_COMMANDS = {
    [1] = "NETPM_APPPROF_ADD_APP_ID",
    [2] = "NETPM_APPPROF_DELETE_APP_ID",
    [3] = "NETPM_APPPROF_CHECK_APP_ID",
    [4] = "NETPM_APPPROF_GET_APP_INFO",
    [5] = "NETPM_APPPROF_SET_APP_INFO",
    [8] = "NETPM_APPPROF_GET_PROPER_PROFILE",
    [9] = "NETPM_APPPROF_ASYNC_PROPER_PROFILE",
    [10] = "NETPM_APPPROF_CHANGE_PAYMENT",
}

local PM_ERRORS = {
    [0] = "PM_SUCCESS",
    [101] = "PM_ERR_BAD_REQUEST",
    [102] = "PM_ERR_UNKNOWN_COMMAND",
    [103] = "PM_ERR_UNKNOWN_PROFILE",
    [104] = "PM_ERR_NO_DEFAULT",
    [105] = "PM_ERR_IN_USE",
    [106] = "PM_ERR_UNKNOWN_TYPE",
    [107] = "PM_ERR_EMPTY_NAME",
    [108] = "PM_ERR_UNENDED_TEXT",
    [109] = "PM_ERR_BAD_PROTOCOL",
    [110] = "PM_ERR_NO_NETWORK_NAME",
    [111] = "PM_ERR_BAD_SECURITY",
    [112] = "PM_ERR_BAD_KEY_INDEX",
    [113] = "PM_ERR_UNKNOWN_APPLICATION",
    [114] = "PM_ERR_KNOWN_APPLICATION",
    [115] = "PM_ERR_BAD_INTERFACE",
    [116] = "PM_ERR_BAD_PAYMENT",
    [117] = "PM_ERR_STORE",
    [118] = "PM_ERR_TOO_MANY",
}

local STATUSES = {
    [0] = "NETCM_SUCCESS",
    [1] = "NETCM_ERR_FAILURE",
    [2] = "NETCM_ERR_REREGISTER_FAILED",
    [3] = "NETCM_ERR_ALREADY_REGISTERED",
    [4] = "NETCM_ERR_REREGISTER_RETRY_EXHAUSTED",
    [5] = "NETCM_ERR_NO_FREE_ENTRY",
    [6] = "NETCM_ERR_NOT_REGISTERED",
    [7] = "NETCM_ERR_INVALID_PROFILE",
    [9] = "NETCM_ERR_NOT_ACTIVE",
    [10] = "NETCM_ERR_ALREADY_EXISTS",
    [11] = "NETCM_ERR_CLOSING",
    [13] = "NETCM_ERR_CALL_CLOSING",
    [14] = "NETCM_ERR_MAX_LIMIT",
    [16] = "NETCM_ERR_NO_FREE_KILL_ENTRY",
    [17] = "NETCM_ERR_NO_FREE_TUNNEL_ENTRY",
    [19] = "NETCM_ERR_INVALID_PARAM",
    [21] = "the network has refused or ended it",
    [22] = "another client has killed the connection",
}

local REASONS = {
    [0] = "no reason given",
    [1] = "there is no such network interface",
    [2] = "the network interface is down",
    [3] = "the network interface has no IPv4 address",
    [4] = "it took too long",
    [5] = "the network has refused it",
    [6] = "the network has ended it",
}

local NETWORK_STATUSES = {
    [0] = "no interface",
    [1] = "down, or without a carrier",
    [2] = "up without an address",
    [3] = "up with an address",
}

local PROFILE_STATUSES = { [0] = "not connected", [1] = "starting", [2] = "up", [3] = "suspended" }
local PROFILE_TYPES = { [0] = "packet data", [1] = "Wi-Fi" }
local INTERFACE_KINDS = { [1] = "packet data", [2] = "Wi-Fi", [3] = "packet data and Wi-Fi" }
local LEVELS = { [0] = "everything", [1] = "bytes", [2] = "packets", [3] = "errors", [4] = "bytes and packets" }

local function with_answers(commands)
    local both = {}
    for code, name in pairs(commands) do
        both[code] = name
        both[code + 100] = name .. " (answer)"
    end
    return both
end

local function names_of_commands()
    local names = {}
    for code, entry in pairs(COMMANDS) do names[code] = entry[1] end
    return names
end

-- Fields of a stored profile: part, name, kind, where in the profile, size. The parts "wep", "psk" and "eap" are forms
-- of a Wi-Fi profile's security, by its mode.
local PROFILE_FIELDS = {
    { "pdp", "proxy", "text", 44, 64 },
    { "pdp", "primary_profile", "short", 108, 2 },
    { "pdp", "primary_profile_id", "signed", 112, 4 },
    { "pdp", "protocol_type", "unsigned", 116, 4 },
    { "pdp", "apn", "text", 120, 104 },
    { "pdp", "address_type", "unsigned", 224, 4 },
    { "pdp", "static_address", "short", 228, 2 },
    { "pdp", "address", "address", 232, 16 },
    { "pdp", "static_dns", "short", 248, 2 },
    { "pdp", "primary_dns", "address", 252, 16 },
    { "pdp", "secondary_dns", "address", 268, 16 },
    { "pdp", "qos_type", "unsigned", 284, 4 },
    { "pdp", "traffic_class", "unsigned", 288, 4 },
    { "pdp", "auth_type", "unsigned", 336, 4 },
    { "pdp", "user_name", "text", 340, 32 },
    { "pdp", "password", "text", 372, 32 },
    { "pdp", "gateway", "address", 404, 16 },
    { "pdp", "net_mask", "address", 420, 16 },
    { "pdp", "home_url", "text", 436, 514 },
    { "pdp", "secure_connection", "short", 950, 2 },
    { "pdp", "app_protocol", "unsigned", 952, 4 },
    { "pdp", "linger_time", "signed", 956, 4 },
    { "wlan", "proxy", "text", 44, 64 },
    { "wlan", "essid", "text", 108, 33 },
    { "wlan", "bssid", "text", 141, 7 },
    { "wlan", "frequency", "signed", 148, 4 },
    { "wlan", "rate", "signed", 152, 4 },
    { "wlan", "standard", "signed", 156, 4 },
    { "wlan", "mode", "signed", 160, 4 },
    { "wlan", "security_mode", "signed", 164, 4 },
    { "wlan", "encryption_mode", "signed", 480, 4 },
    { "wep", "wep_key_0", "text", 168, 27 },
    { "wep", "wep_key_1", "text", 195, 27 },
    { "wep", "wep_key_2", "text", 222, 27 },
    { "wep", "wep_key_3", "text", 249, 27 },
    { "wep", "wep_key_index", "byte", 276, 1 },
    { "psk", "psk", "text", 168, 65 },
    { "eap", "eap_user_name", "text", 168, 51 },
    { "eap", "eap_password", "text", 219, 51 },
    { "eap", "eap_ca_certificate", "text", 270, 51 },
    { "eap", "eap_client_certificate", "text", 321, 51 },
    { "eap", "eap_private_key", "text", 372, 51 },
    { "eap", "eap_key_password", "text", 423, 51 },
    { "eap", "eap_type", "signed", 476, 4 },
    { "wlan", "address_type", "signed", 484, 4 },
    { "wlan", "ip_config_type", "signed", 488, 4 },
    { "wlan", "address", "address", 492, 16 },
    { "wlan", "gateway", "address", 508, 16 },
    { "wlan", "net_mask", "address", 524, 16 },
    { "wlan", "dns_config_type", "signed", 540, 4 },
    { "wlan", "primary_dns", "address", 544, 16 },
    { "wlan", "secondary_dns", "address", 560, 16 },
    { "wlan", "interface", "text", 576, 16 },
}
local FORM_OF_MODE = { [2] = "wep", [3] = "wep", [4] = "psk", [6] = "psk", [8] = "psk", [5] = "eap", [7] = "eap", [9] = "eap" }

-- Fields ------------------------------------------------------------------------------------------------------------

local f = {}
local function field(name, make, title, ...)
    f[name] = make("quorvel." .. name, title, ...)
    return f[name]
end

field("kind", ProtoField.uint8, "Kind", base.DEC, KIND)
field("client", ProtoField.uint32, "Client")
field("number", ProtoField.uint64, "Number in the record")
field("note", ProtoField.string, "Note")
field("command", ProtoField.uint32, "Request", base.DEC, names_of_commands())
field("code", ProtoField.uint32, "Answer or event", base.DEC, EVENTS)
field("status", ProtoField.uint32, "Status", base.DEC, STATUSES)
field("reason", ProtoField.uint32, "Reason", base.DEC, REASONS)
field("profile", ProtoField.int32, "Profile")
field("call", ProtoField.int32, "Call")
field("application", ProtoField.int32, "Application")
field("new_client", ProtoField.uint32, "Client id given")
field("interface_kind", ProtoField.uint32, "Kind of interface", base.DEC, INTERFACE_KINDS)
field("key", ProtoField.uint32, "Setting")
field("value", ProtoField.uint32, "Value")
field("state", ProtoField.uint32, "Packet-data state")
field("level", ProtoField.uint32, "Level of the reset", base.DEC, LEVELS)
field("packet_data", ProtoField.uint32, "Packet data", base.DEC, NETWORK_STATUSES)
field("wifi", ProtoField.uint32, "Wi-Fi", base.DEC, NETWORK_STATUSES)
field("tunnel.param", ProtoField.int32, "Param")
field("tunnel.id", ProtoField.uint32, "Id")
field("tunnel.length", ProtoField.uint32, "Length")
field("tunnel.data", ProtoField.bytes, "Data")
field("word", ProtoField.uint32, "Word", base.HEX_DEC)
field("data", ProtoField.bytes, "Data")

field("pm.command", ProtoField.uint32, "Profile manager's command", base.DEC, with_answers(PM_COMMANDS))
field("pm.arg", ProtoField.uint32, "Argument")
field("pm.arg2", ProtoField.uint32, "Second argument")
field("pm.length", ProtoField.uint32, "Length of the data")
field("pm.error", ProtoField.uint32, "Error", base.DEC, PM_ERRORS)
field("pm.value", ProtoField.uint32, "Value")
field("pm.profile_status", ProtoField.uint32, "Status of the profile", base.DEC, PROFILE_STATUSES)
field("pm.search", ProtoField.string, "Name to find")

field("app.command", ProtoField.uint32, "Command about applications", base.DEC, with_answers(APP_COMMANDS))
field("app.error", ProtoField.uint32, "Error", base.DEC, PM_ERRORS)
field("app.param", ProtoField.uint32, "Param")
field("app.interface", ProtoField.uint32, "Interface", base.DEC, INTERFACE_KINDS)
field("app.with_profile", ProtoField.uint16, "Sets the profile")
field("app.with_interfaces", ProtoField.uint16, "Sets the interfaces")

field("connection.interface", ProtoField.string, "Interface")
field("connection.address", ProtoField.ipv4, "Address")
field("connection.dns_count", ProtoField.int32, "Name servers")
field("connection.dns", ProtoField.ipv4, "Name server")
field("connection.optional", ProtoField.ipv4, "Optional address")

field("count", ProtoField.uint32, "Count")
field("listed_profile", ProtoField.int32, "Profile")
field("listed_name", ProtoField.string, "Name")
field("listed_type", ProtoField.uint32, "Type", base.DEC, PROFILE_TYPES)
field("listed_network", ProtoField.string, "Network")
field("active.access_point", ProtoField.string, "Access point")
field("active.interface", ProtoField.string, "Interface")
field("active.address", ProtoField.ipv4, "Address")
field("active.suspended", ProtoField.uint32, "Suspended")
field("active.users", ProtoField.uint32, "Users")
local STATISTICS = { "received_bytes", "sent_bytes", "received_packets", "sent_packets", "receive_errors", "send_errors" }
for _, name in ipairs(STATISTICS) do field("statistics." .. name, ProtoField.uint32, (name:gsub("_", " "))) end

field("stored.id", ProtoField.int32, "Id")
field("stored.type", ProtoField.uint32, "Type", base.DEC, PROFILE_TYPES)
field("stored.name", ProtoField.string, "Name")
field("stored.attributes", ProtoField.uint32, "Attributes", base.HEX)
local MAKERS = { text = ProtoField.string, signed = ProtoField.int32, unsigned = ProtoField.uint32, short = ProtoField.uint16,
    byte = ProtoField.uint8, address = ProtoField.ipv4 }
for _, entry in ipairs(PROFILE_FIELDS) do
    local name = "stored." .. entry[2]
    if not f[name] then field(name, MAKERS[entry[3]], (entry[2]:gsub("_", " "))) end
end

field("answered_in", ProtoField.framenum, "Answered in", base.NONE, frametype.RESPONSE)
field("answers", ProtoField.framenum, "Answers the request in", base.NONE, frametype.REQUEST)
field("latency", ProtoField.relative_time, "Time since the request")
field("opened_in", ProtoField.framenum, "Connection opened in", base.NONE, frametype.REQUEST)
field("event_in", ProtoField.framenum, "Event of the connection in", base.NONE, frametype.RESPONSE)

quorvel.fields = f

local e = {
    failed = ProtoExpert.new("quorvel.failed", "It has failed", expert.group.RESPONSE_CODE, expert.severity.WARN),
    lost = ProtoExpert.new("quorvel.lost", "Entries of the record are lost", expert.group.SEQUENCE, expert.severity.ERROR),
    malformed = ProtoExpert.new("quorvel.malformed", "Shorter or longer than it should be", expert.group.MALFORMED, expert.severity.ERROR),
    unknown = ProtoExpert.new("quorvel.unknown", "Unknown code", expert.group.UNDECODED, expert.severity.WARN),
}
quorvel.experts = { e.failed, e.lost, e.malformed, e.unknown }

-- What belongs together ---------------------------------------------------------------------------------------------

local waiting, opens, calls         -- by client: requests by the code of their answer; frames by profile, by call
local answered_in, answers, opened_in, events_of  -- by frame
local function forget_clients() waiting, opens, calls = {}, {}, {} end
function quorvel.init()
    forget_clients()
    answered_in, answers, opened_in, events_of = {}, {}, {}, {}
end

local function of(map, key)
    map[key] = map[key] or {}
    return map[key]
end

local function link_request(pinfo, client, code, profile)
    local entry = COMMANDS[code]
    if not entry then return end
    if entry[2] ~= 0 then
        table.insert(of(of(waiting, client), entry[2]), { frame = pinfo.number, time = pinfo.abs_ts })
    end
    if code == 4 then of(opens, client)[profile] = pinfo.number end
    if code == 5 or code == 8 then opened_in[pinfo.number] = of(opens, client)[profile] end
end

local CALL_EVENTS = { [101] = true, [102] = true, [105] = true, [109] = true, [110] = true, [111] = true, [123] = true }

local function link_answer(pinfo, client, kind, code, profile, call)
    local frame = pinfo.number
    local queue = of(of(waiting, client), code)
    if #queue > 0 then
        local request = table.remove(queue, 1)
        answered_in[request.frame] = frame
        answers[frame] = { frame = request.frame, latency = pinfo.abs_ts - request.time }
    end
    if not CALL_EVENTS[code] then return end
    local open = of(opens, client)[profile] or of(calls, client)[call]
    if not open or open == frame then return end
    if code == 101 and kind == 1 then of(calls, client)[call] = open end
    opened_in[frame] = open
    if kind == 2 then table.insert(of(events_of, open), frame) end
end

-- Reading -----------------------------------------------------------------------------------------------------------

-- The bytes of a message, in its byte order, and where they go in the tree.
local Reader = {}
Reader.__index = Reader
local function reader(tvb, little, tree, pinfo)
    return setmetatable({ tvb = tvb, little = little, tree = tree, pinfo = pinfo }, Reader)
end
function Reader:has(at, size) return at + size <= self.tvb:len() end
function Reader:u32(at)
    if not self:has(at, 4) then return 0 end
    local range = self.tvb(at, 4)
    return self.little and range:le_uint() or range:uint()
end
function Reader:i32(at)
    if not self:has(at, 4) then return 0 end
    local range = self.tvb(at, 4)
    return self.little and range:le_int() or range:int()
end
function Reader:add(name, at, size)
    size = size or 4
    if not self:has(at, size) then return self:short() end
    local range = self.tvb(at, size)
    return self.little and self.tree:add_le(f[name], range) or self.tree:add(f[name], range)
end
function Reader:text(name, at, size)
    if not self:has(at, size) then return self:short() end
    local range = self.tvb(at, size)
    local text = range:raw():match("^[^%z]*")
    return self.tree:add(f[name], range, text)
end
-- Addresses have their bytes in order, whatever the machine.
function Reader:address(name, at)
    if not self:has(at, 4) then return self:short() end
    return self.tree:add(f[name], self.tvb(at, 4))
end
function Reader:below(at, size, title)
    if not self:has(at, size) then
        self:short()
        size = math.max(0, self.tvb:len() - at)
    end
    local tree = size > 0 and self.tree:add(quorvel, self.tvb(at, size), title) or self.tree:add(quorvel, title)
    return reader(self.tvb, self.little, tree, self.pinfo), tree
end
function Reader:short()
    self.tree:add_proto_expert_info(e.malformed)
end

local function add_profile(from, at, size)
    if size ~= 972 then
        from:short()
        if size > 0 and from:has(at, size) then from:add("data", at, size) end
        return ""
    end
    local r = from:below(at, size, "Profile")
    r:add("stored.id", at + 4)
    r:add("stored.type", at + 8)
    r:text("stored.name", at + 12, 28)
    r:add("stored.attributes", at + 40)
    local type, form = r:u32(at + 8), FORM_OF_MODE[r:u32(at + 44 + 120)]
    for _, entry in ipairs(PROFILE_FIELDS) do
        local part, name, kind, offset, width = table.unpack(entry)
        local there = part == (type == 0 and "pdp" or "wlan") or (type ~= 0 and part == form)
        if there and kind == "text" then
            r:text("stored." .. name, at + offset, width)
        elseif there and kind == "address" then
            r:address("stored." .. name, at + offset)
        elseif there then
            r:add("stored." .. name, at + offset, ({ signed = 4, unsigned = 4, short = 2, byte = 1 })[kind])
        end
    end
    return " \"" .. from.tvb(at + 12, 28):raw():match("^[^%z]*") .. "\""
end

local function add_connection(from, at)
    local r = from:below(at, 144, "Connection")
    r:text("connection.interface", at + 112, 32)
    r:address("connection.address", at + 44 + 4)
    r:add("connection.dns_count", at)
    for i = 0, math.min(math.max(r:i32(at), 0), 2) - 1 do r:address("connection.dns", at + 4 + 20 * i + 4) end
    if r:u32(at + 64) ~= 0 then r:address("connection.optional", at + 68 + 4) end
    if r:u32(at + 88) ~= 0 then r:address("connection.optional", at + 92 + 4) end
    if r:has(at, 144) then return " " .. tostring(r.tvb(at + 48, 4):ipv4()) end
    return ""
end

local function add_profile_ids(from, at)
    local r = from:below(at, 68, "Profiles")
    r:add("count", at)
    for i = 0, math.min(r:u32(at), 16) - 1 do r:add("listed_profile", at + 4 + 4 * i) end
end

local function add_profile_names(from, at)
    local r = from:below(at, 1604, "Profiles")
    r:add("count", at)
    for i = 0, math.min(r:u32(at), 16) - 1 do r:text("listed_name", at + 4 + 100 * i, 100) end
end

local function add_active_connections(from, at)
    local list = from:below(at, 708, "Active connections")
    list:add("count", at)
    for i = 0, math.min(list:u32(at), 4) - 1 do
        local start = at + 4 + 176 * i
        local r = list:below(start, 176, "Connection")
        r:add("profile", start)
        r:text("active.access_point", start + 4, 104)
        r:text("active.interface", start + 108, 32)
        r:address("active.address", start + 140)
        r:add("call", start + 144)
        r:add("active.suspended", start + 148)
        r:add("active.users", start + 152)
    end
end

local function add_statistics(from, at)
    local r = from:below(at, 24, "Statistics")
    for i, name in ipairs(STATISTICS) do r:add("statistics." .. name, at + 4 * (i - 1)) end
end

local function add_id_list(from, at)
    local r = from:below(at, 84, "Profiles")
    r:add("count", at + 80)
    for i = 0, math.min(math.max(r:i32(at + 80), 0), 20) - 1 do r:add("listed_profile", at + 4 * i) end
end

local function add_partial_list(from, at, size)
    for start = at, at + size - 140, 140 do
        local r = from:below(start, 140, "Profile")
        r:add("listed_profile", start)
        r:add("listed_type", start + 4)
        r:text("listed_name", start + 8, 28)
        r:text("listed_network", start + 36, 104)
    end
end

local function add_app_message(r, at, above)
    r:add("app.command", at + 4)
    r:add("app.error", at + 8)
    r:add("application", at + 12)
    r:add("app.param", at + 16)
    r:add("profile", at + 20)
    r:add("app.interface", at + 24)
    r:add("app.interface", at + 28)
    r:add("app.with_profile", at + 32, 2)
    r:add("app.with_interfaces", at + 34, 2)
    return " " .. (APP_COMMANDS[r:u32(at + 4) - above] or "command " .. r:u32(at + 4))
end

local function failed(r, item, words)
    if item then item:add_proto_expert_info(e.failed, words) end
    return ": " .. words
end

-- Requests ----------------------------------------------------------------------------------------------------------

local function add_pm_request(r)
    r:add("pm.command", 24)
    r:add("profile", 28)
    r:add("pm.arg", 32)
    r:add("pm.length", 36)
    r:add("pm.arg2", 40)
    local command, size = r:u32(24), r.tvb:len() - 44
    local text = " " .. (PM_COMMANDS[command] or "command " .. command) .. " profile=" .. r:i32(28)
    if size <= 0 then return text end
    if command == 16 or command == 17 then
        r:text("pm.search", 44, size)
        return text
    end
    return text .. add_profile(r, 44, size)
end

local REQUESTS = {
    [1] = function(r) r:add("application", 20) return " application=" .. r:i32(20) end,
    [4] = function(r) r:add("profile", 16) return " profile=" .. r:i32(16) end,
    [5] = function(r) r:add("call", 12) r:add("profile", 16) return " call=" .. r:i32(12) .. " profile=" .. r:i32(16) end,
    [7] = function(r)
        r:add("tunnel.param", 12)
        r:add("tunnel.length", 16)
        if r.tvb:len() > 24 then r:add("tunnel.data", 24, r.tvb:len() - 24) end
        return " " .. r:u32(16) .. " bytes"
    end,
    [11] = function(r) r:add("level", 16) return " level=" .. r:u32(16) end,
    [12] = add_pm_request,
    [13] = function(r) return add_app_message(r, 24, 0) end,
    [14] = function(r) r:add("interface_kind", 4) return "" end,
    [17] = function(r) r:add("state", 12) r:add("profile", 16) return " state=" .. r:u32(12) .. " profile=" .. r:i32(16) end,
    [22] = function(r) r:add("key", 12) r:add("value", 16) return " key=" .. r:u32(12) .. " value=" .. r:u32(16) end,
    [23] = function(r) r:add("key", 12) return " key=" .. r:u32(12) end,
}
REQUESTS[8] = REQUESTS[4]
REQUESTS[16] = REQUESTS[4]

local function add_request(r)
    local code = r:u32(0)
    local item = r:add("command", 0)
    if not COMMANDS[code] then
        if item then item:add_proto_expert_info(e.unknown) end
        return "command " .. code
    end
    local special = REQUESTS[code]
    return COMMANDS[code][1] .. (special and special(r) or "")
end

-- Answers and events ------------------------------------------------------------------------------------------------

local function add_status(r)
    local item, status = r:add("status", 16), r:u32(16)
    if status == 0 then return "" end
    local words = STATUSES[status] or "status " .. status
    if status == 21 then
        r:add("reason", 20)
        words = REASONS[r:u32(20)] or "reason " .. r:u32(20)
    end
    return failed(r, item, words)
end

local function add_call_event(r)
    r:add("profile", 8)
    r:add("call", 12)
    local text = " call=" .. r:i32(12) .. " profile=" .. r:i32(8) .. add_status(r)
    if r.tvb:len() > 40 then text = text .. add_connection(r, 40) end
    return text
end

local function add_tunnel(r)
    r:add("tunnel.length", 8)
    r:add("tunnel.id", 12)
    local text = " id=" .. r:u32(12) .. " " .. r:u32(8) .. " bytes" .. add_status(r)
    if r.tvb:len() > 40 then r:add("tunnel.data", 40, r.tvb:len() - 40) end
    return text
end

local function add_block(add, size)
    return function(r)
        local text = add_status(r)
        if r.tvb:len() > 40 then
            if r.tvb:len() ~= 40 + size then r:short() end
            add(r, 40)
        end
        return text
    end
end

local function add_value(r)
    r:add("value", 8)
    return " value=" .. r:u32(8) .. add_status(r)
end

local function add_pm_answer(r)
    local command = r:u32(4) - 100
    r:add("pm.command", 4)
    r:add("profile", 8)
    local item = r:add("pm.error", 12)
    r:add("pm.length", 20)
    r:add(command == 5 and "pm.profile_status" or "pm.value", 24)
    local text = " " .. (PM_COMMANDS[command] or "command " .. command) .. " profile=" .. r:i32(8)
    if r:u32(12) ~= 0 then text = text .. failed(r, item, PM_ERRORS[r:u32(12)] or "error " .. r:u32(12)) end
    local size = r.tvb:len() - 40
    if size <= 0 then return text end
    if command == 10 or command == 16 or command == 17 then
        add_id_list(r, 40)
    elseif command == 15 then
        add_partial_list(r, 40, size)
    else
        text = text .. add_profile(r, 40, size)
    end
    return text
end

local ANSWERS = {
    [1] = function(r) r:add("new_client", 4) return " client=" .. r:u32(4) .. add_status(r) end,
    [101] = add_call_event,
    [102] = add_call_event,
    [103] = add_block(add_profile_ids, 68),
    [104] = add_tunnel,
    [105] = add_call_event,
    [107] = add_block(add_statistics, 24),
    [109] = add_call_event,
    [110] = add_call_event,
    [111] = add_call_event,
    [112] = add_tunnel,
    [113] = add_pm_answer,
    [114] = function(r, kind)
        if kind == 1 then return add_app_message(r, 4, 100) end
        r:add("application", 20)
        r:add("profile", 24)
        return " application=" .. r:i32(20) .. " profile=" .. r:i32(24) .. add_status(r)
    end,
    [115] = add_block(add_active_connections, 708),
    [116] = add_block(add_profile_names, 1604),
    [117] = function(r) r:add("state", 8) return " state=" .. r:u32(8) .. add_status(r) end,
    [121] = function(r) r:add("packet_data", 32) r:add("wifi", 28) return add_status(r) end,
    [122] = function(r)
        r:add("packet_data", 8)
        r:add("wifi", 12)
        return ": packet data " .. (NETWORK_STATUSES[r:u32(8)] or r:u32(8)) .. ", Wi-Fi " .. (NETWORK_STATUSES[r:u32(12)] or r:u32(12))
    end,
    [123] = add_call_event,
    [124] = function(r) r:add("interface_kind", 8) return " " .. (INTERFACE_KINDS[r:u32(8)] or "none") .. add_status(r) end,
}

local function add_answer(r, kind)
    local code = r:u32(0)
    local item = r:add("code", 0)
    if not EVENTS[code] then
        if item then item:add_proto_expert_info(e.unknown) end
        if r.tvb:len() > 40 then r:add("data", 40, r.tvb:len() - 40) end
        return "code " .. code
    end
    return EVENTS[code] .. (ANSWERS[code] or add_value)(r, kind)
end

-- The message -------------------------------------------------------------------------------------------------------

local function add_links(tree, frame)
    local function add(name, value, text)
        local item = tree:add(f[name], value)
        item:set_generated()
        return item
    end
    if answered_in[frame] then add("answered_in", answered_in[frame]) end
    if answers[frame] then
        add("answers", answers[frame].frame)
        local latency = answers[frame].latency
        local seconds = math.floor(latency)
        add("latency", NSTime.new(seconds, math.floor((latency - seconds) * 1e9 + 0.5)))
    end
    if opened_in[frame] then add("opened_in", opened_in[frame]) end
    for _, event in ipairs(events_of[frame] or {}) do add("event_in", event) end
end

local function dissect_note(tvb, pinfo, tree)
    local text = tvb:len() > 0 and tvb():raw() or ""
    local item = tree:add(f.note, tvb(), text)
    local name = text:match('"note":"([^"]*)"') or ""
    if name == "lost" then item:add_proto_expert_info(e.lost) end
    -- Another server counts its clients anew.
    if not pinfo.visited and (name == "server gone" or (name == "begin" and text:match('"part":1[,}]'))) then
        forget_clients()
    end
    return name .. " " .. text
end

function quorvel.dissector(tvb, pinfo, root)
    if tvb:len() < 16 then return 0 end
    pinfo.cols.protocol = "Quorvel"
    local tree = root:add(quorvel, tvb())
    local kind, little, client = tvb(1, 1):uint(), tvb(2, 1):uint() == 1, tvb(4, 4):uint()
    tree:add(f.kind, tvb(1, 1))
    tree:add(f.client, tvb(4, 4))
    tree:add(f.number, tvb(8, 8))
    pinfo.cols.src = kind == 0 and "client " .. client or "server"
    pinfo.cols.dst = kind == 0 and "server" or "client " .. client
    local message = tvb:len() > 16 and tvb(16):tvb() or nil
    local info = ""
    if message == nil then
        tree:add_proto_expert_info(e.malformed)
    elseif kind == 3 then
        info = dissect_note(message, pinfo, tree)
    else
        local r = reader(message, little, tree, pinfo)
        if not pinfo.visited and kind == 0 then link_request(pinfo, client, r:u32(0), r:i32(16)) end
        if not pinfo.visited and kind ~= 0 then link_answer(pinfo, client, kind, r:u32(0), r:i32(8), r:u32(12)) end
        if message:len() < (kind == 0 and 24 or 40) then r:short() end
        info = kind == 0 and add_request(r) or add_answer(r, kind)
        add_links(tree, pinfo.number)
    end
    pinfo.cols.info = client .. " " .. (ARROW[kind] or "?") .. " " .. info
    tree:append_text(", client " .. client .. " " .. (ARROW[kind] or "?") .. " " .. info)
    return tvb:len()
end
