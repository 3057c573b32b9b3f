-- Made by dp4 from the configuration with SHA-256 810496dccddcd98f3ef11162206b8345611273be1fe21a57495c8d474e2207cc.
-- Start Wireshark or tshark with -X lua_script:FILE, or put this file into its folder of personal plugins.

local entities = {
  {
    name = "kettle", title = "Kettle", payload_bytes = 6, flag_bytes = 1, write_bytes = 2, writable = 3,
    attributes = {
      {name = "power", title = "Power", first = 7, bits = 1, flag = 0, write_first = 7, kind = "bool"},
      {name = "program", title = "Program", first = 5, bits = 2, flag = 1, write_first = 5, kind = "enum", items = {[0] = "boil", [1] = "green_tea", [2] = "keep_warm"}, max = 2},
      {name = "target", title = "Target temperature", first = 8, bits = 8, flag = 2, write_first = 8, kind = "number", min = 0, max = 120, ratio = 0.5, addition = 40},
      {name = "temperature", title = "Temperature", first = 16, bits = 16, kind = "number", min = 0, max = 1500, ratio = 0.1, addition = -20},
      {name = "low_water", title = "Low water", first = 39, bits = 1, kind = "bool"},
      {name = "lid_open", title = "Lid open", first = 38, bits = 1, kind = "bool"},
      {name = "sensor", title = "Sensor broken", first = 47, bits = 1, kind = "bool"},
    },
  },
}

local commands = {
  [1] = "write", [2] = "read", [3] = "read response", [4] = "notification", [7] = "write to sub-device",
  [8] = "read sub-device", [11] = "add sub-device", [12] = "remove sub-device", [13] = "list sub-devices"}

local function new_field(abbreviation, attribute)
  local title = attribute.title ~= "" and attribute.title or attribute.name
  if attribute.kind == "bool" then return ProtoField.bool(abbreviation, title) end
  if attribute.kind == "bytes" then return ProtoField.bytes(abbreviation, title) end
  if attribute.ratio then return ProtoField.double(abbreviation, title) end
  local new = attribute.bits > 32 and ProtoField.uint64 or ProtoField.uint32
  return new(abbreviation, title, base.DEC, attribute.items)
end

local function new_expert(entity, name, text, severity)
  return ProtoExpert.new(entity.name .. ".expert." .. name, text, expert.group.MALFORMED, severity)
end

-- Words of Wireshark's filters. One that is made a protocol's name ends Wireshark itself.
local reserved = {}
for word in ([[all all_eq all_ne and any any_eq any_ne bitwise_and contains eq ge gt in le lt matches ne not or]]):gmatch(
  "%S+") do
  reserved[word] = true
end

-- Wireshark has one protocol of each name, of two characters or more, and one of each title: where it has this one
-- already, the name ends in "_device", or the title tells the name. Returns the protocol and its name.
local function new_proto(name, title)
  local is_usable = #name > 1 and not reserved[name]
  for _, one in ipairs({is_usable and name or name .. "_device", name .. "_device"}) do
    for _, text in ipairs({title, title .. " (" .. one .. ")"}) do
      local is_new, proto = pcall(Proto, one, text)
      if is_new then return proto, one end
    end
  end
  error("Wireshark has the protocols " .. name .. " and " .. name .. "_device already")
end

for _, entity in ipairs(entities) do
  local proto
  proto, entity.name = new_proto(entity.name, entity.title ~= "" and entity.title or entity.name)
  entity.proto = proto
  entity.command = ProtoField.uint8(entity.name .. ".packet.command", "Command", base.DEC, commands)
  entity.sub_device = ProtoField.int32(entity.name .. ".packet.sub_device", "Sub-device")
  local fields = {entity.command, entity.sub_device}
  for _, attribute in ipairs(entity.attributes) do
    attribute.field = new_field(entity.name .. "." .. attribute.name, attribute)
    table.insert(fields, attribute.field)
  end
  proto.fields = fields
  entity.experts = {
    out_of_range = new_expert(entity, "out_of_range", "Value out of range", expert.severity.WARN),
    no_item = new_expert(entity, "no_item", "Enum without an item", expert.severity.WARN),
    surplus = new_expert(entity, "surplus", "Surplus bytes", expert.severity.NOTE),
    short = new_expert(entity, "short", "Bytes are missing", expert.severity.WARN),
    not_read = new_expert(entity, "not_read", "Not read by the application", expert.severity.NOTE),
    no_flag = new_expert(entity, "no_flag", "A write without a flag", expert.severity.ERROR),
    unknown = new_expert(entity, "unknown", "Unknown command or flag", expert.severity.ERROR)}
  local experts = {}
  for _, one in pairs(entity.experts) do table.insert(experts, one) end
  proto.experts = experts
end

-- The bytes that hold a field, and its raw value; nil when the payload ends before.
local function read(payload, first, bits, kind)
  local from = math.floor(first / 8)
  local to = math.floor((first + bits - 1) / 8)
  if not payload or to >= payload:len() then return nil end
  local range = payload:range(from, to - from + 1)
  if kind == "bytes" then return range, nil end
  return range, range:bitfield(first - 8 * from, bits)
end

local function number(raw)
  return type(raw) == "number" and raw or raw:tonumber()
end

-- What is wrong with a raw value: the name of an expert information, or nil.
local function fault(attribute, raw)
  if attribute.kind == "enum" and number(raw) > attribute.max then return "no_item" end
  if attribute.kind ~= "number" then return nil end
  if number(raw) < attribute.min or number(raw) > attribute.max then return "out_of_range" end
end

local function add(tree, attribute, range, raw)
  if attribute.kind == "bytes" then
    tree:add(attribute.field, range)
  elseif attribute.kind == "bool" then
    tree:add(attribute.field, range, raw ~= 0)
  elseif attribute.ratio then
    -- As an application gets it: with six decimals, in at most 31 characters.
    local value = string.format("%.6f", number(raw) * attribute.ratio + attribute.addition):sub(1, 31)
    local item = tree:add(attribute.field, range, tonumber(value))
    item:append_text(" (raw " .. tostring(raw) .. ")")
  else
    tree:add(attribute.field, range, raw)
  end
end

local function add_fault(entity, tree, name, range, text)
  tree:add(range, text):add_proto_expert_info(entity.experts[name], text)
end

local function fault_text(attribute, raw)
  return string.format("%s: raw %s, expected %d to %d", attribute.title, tostring(raw), attribute.min or 0,
                       attribute.max)
end

local function length_text(expected, found)
  return string.format("expected %d bytes, found %d", expected, found)
end

-- A read response or notification: the attributes that an application gets. It gets none when the bytes of a bool or
-- binary are missing, and none after an enum without an item.
local function add_response(entity, tvb, tree)
  local size = tvb:len() - 1
  local payload = size > 0 and tvb:range(1, size) or nil
  if size < entity.payload_bytes then
    tree:add_proto_expert_info(entity.experts.short, length_text(entity.payload_bytes, size))
  elseif size > entity.payload_bytes then
    local surplus = tvb:range(1 + entity.payload_bytes)
    add_fault(entity, tree, "surplus", surplus, "Surplus: " .. length_text(entity.payload_bytes, size))
  end
  local results = {}
  local ends, is_wiped
  for index, attribute in ipairs(entity.attributes) do
    local range, raw = read(payload, attribute.first, attribute.bits, attribute.kind)
    if not range and (attribute.kind == "bool" or attribute.kind == "bytes") then
      is_wiped = true
      ends = index
      break
    end
    local wrong = range and fault(attribute, raw)
    results[index] = {range = range, raw = raw, wrong = wrong}
    if wrong == "no_item" then
      ends = index
      break
    end
  end
  for index, attribute in ipairs(entity.attributes) do
    local result = results[index]
    if result and result.wrong then
      add_fault(entity, tree, result.wrong, result.range, fault_text(attribute, result.raw))
    elseif result and result.range and not is_wiped then
      add(tree, attribute, result.range, result.raw)
    end
  end
  if not ends then return end
  local culprit = entity.attributes[ends].title
  local text = is_wiped and "no attribute: " .. culprit .. " is missing" or
                 "the attributes after " .. culprit .. ", which has no item"
  tree:add_proto_expert_info(entity.experts.not_read, "Not read by the application: " .. text)
end

-- A write: the attributes whose flags are set. A device refuses a write with an unknown flag or none at all.
local function add_write(entity, tvb, tree)
  local whole = 1 + entity.flag_bytes + entity.write_bytes
  local start = 1
  if tvb:len() == whole + 4 then
    tree:add_le(entity.sub_device, tvb:range(1, 4))
    start = 5
  elseif tvb:len() ~= whole then
    local name = tvb:len() < whole and "short" or "surplus"
    tree:add_proto_expert_info(entity.experts[name], length_text(whole, tvb:len()))
    return
  end
  if entity.writable == 0 then return end
  local flags = tvb:range(start, entity.flag_bytes)
  local payload = tvb:range(start + entity.flag_bytes)
  local unused = 8 * entity.flag_bytes - entity.writable
  if unused > 0 and flags:bitfield(0, unused) ~= 0 then
    add_fault(entity, tree, "unknown", flags, "Flags of unknown attributes")
    return
  end
  local is_any_set = false
  for _, attribute in ipairs(entity.attributes) do
    local is_set = attribute.flag and flags:bitfield(8 * entity.flag_bytes - 1 - attribute.flag, 1) ~= 0
    if is_set then
      is_any_set = true
      local range, raw = read(payload, attribute.write_first, attribute.bits, attribute.kind)
      local wrong = fault(attribute, raw)
      if wrong then
        add_fault(entity, tree, wrong, range, fault_text(attribute, raw))
      else
        add(tree, attribute, range, raw)
      end
    end
  end
  if not is_any_set then add_fault(entity, tree, "no_flag", flags, "No flag is set") end
end

local function dissect(entity, tvb, pinfo, tree)
  if tvb:len() == 0 then return 0 end
  local command = tvb:range(0, 1):uint()
  local top = tree:add(entity.proto, tvb:range())
  pinfo.cols.protocol = entity.name
  pinfo.cols.info = commands[command] or "unknown command " .. command
  top:add(entity.command, tvb:range(0, 1))
  if command == 3 or command == 4 then
    add_response(entity, tvb, top)
  elseif command == 1 or command == 7 then
    add_write(entity, tvb, top)
  elseif not commands[command] then
    top:add_proto_expert_info(entity.experts.unknown, "Unknown command " .. command)
  else
    local expected = (command == 8 or command == 12) and 5 or 1
    if expected == 5 and tvb:len() >= 5 then top:add_le(entity.sub_device, tvb:range(1, 4)) end
    if tvb:len() ~= expected then
      local name = tvb:len() < expected and "short" or "surplus"
      top:add_proto_expert_info(entity.experts[name], length_text(expected, tvb:len()))
    end
  end
  return tvb:len()
end

-- A packet does not name its entity: the first one of its length, or else the first one. "Decode As" chooses another.
local function entity_of(tvb)
  local command = tvb:len() > 0 and tvb:range(0, 1):uint()
  for _, entity in ipairs(entities) do
    local write = 1 + entity.flag_bytes + entity.write_bytes
    local is_write = (command == 1 or command == 7) and (tvb:len() == write or tvb:len() == write + 4)
    local is_response = (command == 3 or command == 4) and tvb:len() == 1 + entity.payload_bytes
    if is_write or is_response then return entity end
  end
  return entities[1]
end

local transports = {}
for name in pairs({["udp.port"] = 1, ["tcp.port"] = 1, ["wtap_encap"] = 1}) do
  transports[name] = DissectorTable.get(name)
end
for _, entity in ipairs(entities) do
  function entity.proto.dissector(tvb, pinfo, tree)
    return dissect(entity, tvb, pinfo, tree)
  end
  transports["udp.port"]:add_for_decode_as(entity.proto)
  transports["tcp.port"]:add_for_decode_as(entity.proto)
end
local any = entities[1].proto
if #entities > 1 then
  any = new_proto(entities[1].name .. ".packet.any", entities[1].title .. " and others")
  function any.dissector(tvb, pinfo, tree)
    return dissect(entity_of(tvb), tvb, pinfo, tree)
  end
end
transports["udp.port"]:add(12416, any)
transports["tcp.port"]:add(12417, any)
transports["wtap_encap"]:add(wtap.USER3, any)
