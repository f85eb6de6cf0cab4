-- Dissects what `qupc-inspect pcap` has written: packets between host and audio service.
--
--     wireshark -X lua_script:qupc.lua session.pcapng
--
-- Every record is one packet, or bytes that are no packet; they have the link type that is left to users (147).
local qupc = Proto("qupc", "QuPC control protocol")

local HEADER = 9
local DEEPEST = 32 -- payloads nested deeper are shown as bytes
local NESTED, INT = 14, 6

local commands = {
    [0] = "Open", [1] = "Open_Ack", [2] = "Close", [3] = "Close_Ack", [4] = "Pause", [5] = "Pause_Ack", [6] = "Resume",
    [7] = "Resume_Ack", [8] = "Flush", [9] = "Flush_Ack", [10] = "SetPlayList", [11] = "SetPlayList_Ack",
    [12] = "SetVolume", [13] = "SetVolume_Ack", [14] = "GetVolume", [15] = "GetVolume_Ack", [16] = "GetPosition",
    [17] = "GetPosition_Ack", [18] = "SetMediaInfo", [19] = "SetMediaInfo_Ack", [20] = "GetMediaInfo",
    [21] = "GetMediaInfo_Ack", [22] = "SetChannel", [23] = "SetChannel_Ack", [24] = "GetChannel",
    [25] = "GetChannel_Ack", [26] = "HeartBeat", [27] = "HeartBeat_Ack", [28] = "GetState", [29] = "GetState_Ack",
    [30] = "GetDeviceInfo", [31] = "GetDeviceInfo_Ack", [32] = "MuteAudio", [33] = "MuteAudio_Ack", [34] = "Notify",
    [35] = "Notify_dummy_Ack", [36] = "RemoveDev", [37] = "RemoveDev_Ack", [38] = "SetBtP2PGO", [39] = "SetBtP2PGO_Ack",
    [40] = "Auth", [41] = "Auth_Ack", [42] = "TestCmd", [43] = "Test_Cmd_Ack", [44] = "WakeUp", [45] = "WakeUp_Ack",
    [46] = "AddMirror", [47] = "AddMirror_Ack", [48] = "DelMirror", [49] = "DelMirror_Ack", [50] = "CloseMirror",
    [51] = "CloseMirror_Ack", [52] = "GetMirrorMode", [53] = "GetMirrorMode_Ack", [54] = "GetVersion",
    [55] = "GetVersion_Ack", [56] = "SetBtFrequency", [57] = "SetBtFrequency_Ack", [58] = "GetBtFrequency",
    [59] = "GetBtFrequency_Ack", [60] = "SyncMediaInfo", [61] = "SyncMediaInfo_Ack", [62] = "SyncState",
    [63] = "SyncState_Ack", [64] = "SetPlaySource", [65] = "SetPlaySource_Ack", [66] = "StartMediaPlayer",
    [67] = "StartMediaPlayer_Ack", [68] = "PauseMediaPlayer", [69] = "PauseMediaPlayer_Ack", [70] = "ResumeMediaPlayer",
    [71] = "ResumeMediaPlayer_Ack", [72] = "SeekMediaPlayer", [73] = "SeekMediaPlayer_Ack", [74] = "MediaPlayerPrev",
    [75] = "MediaPlayerPrev_Ack", [76] = "MediaPlayerNext", [77] = "MediaPlayerNext_Ack", [78] = "PauseSender",
    [79] = "PauseSender_Ack", [80] = "ResumeSender", [81] = "ResumeSender_Ack", [82] = "ExitMirror",
    [83] = "ExitMirror_Ack", [84] = "NLPSend", [85] = "NLPSend_Ack", [86] = "SetPosition", [87] = "SetPosition_Ack",
    [88] = "SetDeviceInfo", [89] = "SetDeviceInfo_Ack", [90] = "SetNotifyPlaySource", [91] = "SetNotifyPlaySource_Ack",
    [92] = "SeekDone", [93] = "SeekDone_Ack", [94] = "SetMediaState", [95] = "SetMediaState_Ack", [96] = "TryCloseZelk",
    [97] = "TryCloseZelk_Ack", [98] = "SpeakerRandomPlay", [99] = "SpeakerRandomPlay_Ack",
    [1024] = "AloneMediaPlayerStart", [1025] = "AloneMediaPlayerStart_Ack", [1026] = "AloneMediaPlayerStop",
    [1027] = "AloneMediaPlayerStop_Ack", [1028] = "AloneMediaPlayerPause", [1029] = "AloneMediaPlayerPause_Ack",
    [1030] = "AloneMediaPlayerResume", [1031] = "AloneMediaPlayerResume_Ack", [1032] = "AloneMediaPlayerPrev",
    [1033] = "AloneMediaPlayerPrev_Ack", [1034] = "AloneMediaPlayerNext", [1035] = "AloneMediaPlayerNext_Ack",
    [1036] = "AloneMediaPlayerSeek", [1037] = "AloneMediaPlayerSeek_Ack", [1038] = "AloneMediaPlayerSeekDone",
    [1039] = "AloneMediaPlayerSeekDone_Ack", [1040] = "AloneMediaPlayerSetPosition",
    [1041] = "AloneMediaPlayerSetPosition_Ack", [1042] = "AloneMediaPlayerGetPosition",
    [1043] = "AloneMediaPlayerGetPosition_Ack", [1044] = "AloneMediaPlayerSetState",
    [1045] = "AloneMediaPlayerSetState_Ack", [1046] = "AloneMediaPlayerGetState",
    [1047] = "AloneMediaPlayerGetState_Ack", [1048] = "AloneMediaPlayerSetMediaInfo",
    [1049] = "AloneMediaPlayerSetMediaInfo_Ack", [1050] = "AloneMediaPlayerGetMediaInfo",
    [1051] = "AloneMediaPlayerGetMediaInfo_Ack", [4097] = "AVMustBeFirst", [4098] = "AVMediaPlay",
    [4099] = "AVMediaPlay_Ack", [4100] = "SetDuration", [4101] = "SetDuration_Ack", [4102] = "SetBuffering",
    [4103] = "SetBuffering_Ack", [4104] = "AVMediaPlayError", [4105] = "AVMediaPlayError_Ack", [4106] = "PlayFinish",
    [4107] = "PlayFinish_Ack", [4108] = "AVMustBeLast", [4109] = "SendHeadSet", [4110] = "SendHeadSet_Ack",
    [5120] = "SafetyInfo", [5121] = "SafetyInfo_Ack", [5122] = "SafetyAuth", [5123] = "SafetyAuth_Ack",
    [8193] = "StopPCAudioZLK", [61808] = "OpenDebugLog", [65505] = "OpenDebugLog_Ack", [65506] = "OpenCoreDump",
    [65507] = "OpenCoreDump_Ack", [65508] = "OpenSsh", [65509] = "OpenSsh_Ack", [65510] = "CloseSsh",
    [65511] = "CloseSsh_Ack", [65530] = "Priv",
}

local fields = qupc.fields
fields.magic = ProtoField.uint8("qupc.magic", "Magic", base.HEX)
fields.command = ProtoField.uint16("qupc.command", "Command", base.DEC, commands)
fields.seq = ProtoField.uint16("qupc.seq", "Sequence number")
fields.size = ProtoField.uint32("qupc.size", "Payload size")
fields.key = ProtoField.string("qupc.key", "Key", base.UNICODE)
fields.type = ProtoField.uint8("qupc.type", "Type")
fields.int = ProtoField.int32("qupc.int", "Value")
fields.number = ProtoField.uint64("qupc.number", "Value")
fields.text = ProtoField.string("qupc.text", "Value", base.UNICODE)
fields.rest = ProtoField.bytes("qupc.rest", "Not decoded")

local malformed = ProtoExpert.new("qupc.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR)
qupc.experts = { malformed }

-- What a type code says about the bytes behind it: the width of the value, or of the length in front of it.
local fixed = { [0] = 1, [1] = 1, [2] = 1, [3] = 1, [4] = 2, [5] = 2, [6] = 4, [7] = 4, [10] = 4, [8] = 8, [9] = 8, [11] = 8 }
local prefix = { [12] = 2, [13] = 2, [14] = 2, [20] = 4, [21] = 4, [22] = 4 }

-- Where the parts of the entry at the front of these bytes are; or nil, what is wrong, and at which of the bytes.
local function parse(bytes)
    local at = 0
    local function missing(what, needed)
        local left = bytes:len() - at
        return left < needed and string.format("%s needs %d bytes, %d left", what, needed, left) or nil
    end
    local entry = { key_size = bytes(0, 1):uint() }
    at = 1
    local wrong = missing("key", entry.key_size)
    if wrong then return nil, wrong, at end
    at = at + entry.key_size
    wrong = missing("type", 1)
    if wrong then return nil, wrong, at end
    entry.type = bytes(at, 1):uint()
    entry.type_at = at
    if not fixed[entry.type] and not prefix[entry.type] then
        return nil, string.format("type %d has no value layout", entry.type), at
    end
    at = at + 1
    entry.size = fixed[entry.type]
    if not entry.size then
        local width = prefix[entry.type]
        wrong = missing("value length", width)
        if wrong then return nil, wrong, at end
        entry.size = bytes(at, width):uint()
        at = at + width
    end
    wrong = missing("value", entry.size)
    if wrong then return nil, wrong, at end
    entry.value_at = at
    entry.stop = at + entry.size
    return entry
end

local add_entries

-- Adds the value to the tree; returns how the summary shows it.
local function add_value(entry, bytes, offset, depth, tree)
    if entry.type == NESTED and depth < DEEPEST then
        return "{" .. add_entries(entry.size > 0 and bytes(entry.value_at, entry.size), offset + entry.value_at, depth + 1, tree) .. "}"
    end
    if prefix[entry.type] then
        if entry.size == 0 then
            return '""'
        end
        local value = bytes(entry.value_at, entry.size)
        tree:add(fields.text, value)
        return '"' .. value:string() .. '"'
    end
    local value = bytes(entry.value_at, entry.size)
    if entry.type == INT then
        tree:add(fields.int, value)
        return tostring(value:int())
    end
    tree:add(fields.number, value, value:uint64())
    return tostring(value:uint64())
end

-- Adds the entries of a payload, which begins at `offset` in its packet; returns a summary of them.
add_entries = function(payload, offset, depth, tree)
    local summary = {}
    local at = 0
    while payload and at < payload:len() do
        local bytes = payload(at, payload:len() - at)
        local entry, wrong, wrong_at = parse(bytes)
        if not entry then
            local text = string.format("byte %d: %s", offset + at + wrong_at, wrong)
            tree:add(fields.rest, bytes):add_proto_expert_info(malformed, text)
            table.insert(summary, "malformed: " .. text)
            break
        end
        local key = entry.key_size > 0 and bytes(1, entry.key_size):string() or '""'
        local branch = tree:add(qupc, bytes(0, entry.stop), key)
        if entry.key_size > 0 then
            branch:add(fields.key, bytes(1, entry.key_size))
        end
        branch:add(fields.type, bytes(entry.type_at, 1))
        table.insert(summary, key .. " " .. add_value(entry, bytes, offset + at, depth, branch))
        at = at + entry.stop
    end
    return table.concat(summary, ", ")
end

-- What is wrong with the record as a whole, and whether its payload can be read all the same.
local function fault_of(buffer)
    local length = buffer:reported_len()
    if length < HEADER then
        return string.format("byte 0: header needs %d bytes, %d left", HEADER, length), false
    end
    local size = buffer(5, 4):uint()
    if length ~= HEADER + size then
        return string.format("byte %d: payload needs %d bytes, %d left", HEADER, size, length - HEADER), false
    end
    local magic = buffer(0, 1):uint()
    return magic ~= 0x24 and string.format("byte 0: the first byte is %02x, not 24", magic) or nil, buffer:len() == length
end

function qupc.dissector(buffer, info, root)
    info.cols.protocol = "QuPC"
    local sent = info.p2p_dir == P2P_DIR_SENT -- by the host
    info.cols.src = sent and "host" or "service"
    info.cols.dst = sent and "service" or "host"
    local tree = root:add(qupc, buffer())
    local fault, readable = fault_of(buffer)
    if fault then
        tree:add_proto_expert_info(malformed, fault)
    end
    if buffer:reported_len() < HEADER or (fault and not readable) then
        info.cols.info = "no packet: " .. fault
        return
    end
    local command = buffer(1, 2):uint()
    tree:add(fields.magic, buffer(0, 1))
    tree:add(fields.command, buffer(1, 2))
    tree:add(fields.seq, buffer(3, 2))
    tree:add(fields.size, buffer(5, 4))
    local summary = "(cut in the file)"
    if readable then
        summary = add_entries(buffer:len() > HEADER and buffer(HEADER), HEADER, 0, tree)
    end
    local text = string.format("%s #%d", commands[command] or command, buffer(3, 2):uint())
    info.cols.info = text .. (fault and "  malformed: " .. fault or "") .. (summary ~= "" and "  " .. summary or "")
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, qupc)
