-- Runs inside ardour7-lua, Ardour's headless Lua session tool; ardour_session_test.sh starts it.
--   QEL_DAW_MODE=create: a session with one stereo track fed by the Dummy backend's sine, the
--     plug-in on it; exports dry, with the plug-in at its defaults, with its gain changed and
--     with it bypassed; saves the session, and beside it a snapshot in which Ardour's own copies
--     of the gain are back at the default, so that only the plug-in's saved state holds it.
--     Then it selects one of the plug-in's built-in programs from the host's program list,
--     checks the controls it sets and exports, and saves that as a snapshot of its own.
--   QEL_DAW_MODE=reload, QEL_DAW_SNAPSHOT=<name>: opens that snapshot and checks that the
--     plug-in, its gain (or the program's controls) and its sound came back.
-- ardour7-lua passes no script arguments, so everything comes from the environment. A failed
-- check raises an error whose message starts with "FAIL:"; ardour7-lua then exits with status 1.

local env = {
  mode          = os.getenv("QEL_DAW_MODE") or "",
  dir           = os.getenv("QEL_DAW_DIR") or "",
  snapshot      = os.getenv("QEL_DAW_SNAPSHOT") or "",
  plugin        = os.getenv("QEL_DAW_PLUGIN") or "DLC-730",
  plugin_type   = os.getenv("QEL_DAW_PLUGIN_TYPE") or "VST3",
  gain_param    = os.getenv("QEL_DAW_GAIN_PARAM") or "OutGain",
  gain_db       = tonumber(os.getenv("QEL_DAW_GAIN_DB") or "-6"),
  -- Only used when the host shows the gain as a normalised 0..1 value, as Ardour does for VST 3.
  gain_min_db   = tonumber(os.getenv("QEL_DAW_GAIN_MIN_DB") or "-12"),
  gain_max_db   = tonumber(os.getenv("QEL_DAW_GAIN_MAX_DB") or "12"),
  bypass_param  = os.getenv("QEL_DAW_BYPASS_PARAM") or "Bypass",
  -- A program of the host's list as Ardour labels it ("<number> <name>"), and the host values
  -- it gives the controls: Lo +6 dB and Mid +1.5 dB of -3 .. +9, Hi flat, OutGain -2.5 dB of
  -- -12 .. +12. An empty program skips this part.
  program       = os.getenv("QEL_DAW_PROGRAM") or "7 Fuller Bass",
  program_values = os.getenv("QEL_DAW_PROGRAM_VALUES") or "Lo=0.75,Mid=0.375,Hi=0.25,OutGain=0.3958333",
  export_preset = os.getenv("QEL_DAW_EXPORT_PRESET") or "",
}

local SESSION_NAME = "daw-test"
local STATE_ONLY_SNAPSHOT = SESSION_NAME .. "-state-only"
local PROGRAM_SNAPSHOT = SESSION_NAME .. "-program"
local TRACK_NAME = "Tone"
local RATE = 48000
local EXPORT_SECONDS = 3
-- The first half second is left out of every level: it holds the plug-in's start-up, its
-- latency and any bypass crossfade.
local SKIP_SECONDS = 0.5
local SILENT_DB = -60
-- The Dummy backend's sine runs on between exports, so each file starts at another phase and
-- its level over a window that is no whole number of periods moves by a few thousandths of a dB.
local GAIN_TOLERANCE_DB = 0.5
local RELOAD_TOLERANCE_DB = 0.05
local PLAUSIBLE_DEFAULT_DB = 3
-- A program that changes nothing audible would prove nothing.
local PROGRAM_AUDIBLE_DB = 1

-- Unbuffered, so that what was said before a crash reaches the log.
io.stdout:setvbuf("no")

local function fail(msg) error("FAIL: " .. msg, 0) end
local started_us = ARDOUR.LuaAPI.monotonic_time()
local function note(msg)
  print(string.format("daw-test [%5.1f s]: %s", (ARDOUR.LuaAPI.monotonic_time() - started_us) / 1e6, msg))
end
local function check(cond, msg) if not cond then fail(msg) end end

check(env.mode == "create" or env.mode == "reload", "QEL_DAW_MODE must be create or reload")
check(env.dir ~= "", "QEL_DAW_DIR is not set")
check(env.gain_db, "QEL_DAW_GAIN_DB is not a number")
local session_dir = env.dir .. "/session"
local export_dir = env.dir .. "/export"

local plugin_types = {
  VST3 = ARDOUR.PluginType.VST3, LV2 = ARDOUR.PluginType.LV2, Lua = ARDOUR.PluginType.Lua,
}
local plugin_type = plugin_types[env.plugin_type]
check(plugin_type, "unknown plug-in type " .. env.plugin_type)

------------------------------------------------------------------------------------------------
-- WAV files and levels

local function read_file(path)
  local f = io.open(path, "rb")
  if not f then return nil end
  local data = f:read("a")
  f:close()
  return data
end

local function write_file(path, data)
  local f = io.open(path, "wb")
  check(f, "cannot write " .. path)
  f:write(data)
  f:close()
end

local function read_wav(path)
  local data = read_file(path)
  check(data, "export did not write " .. path)
  check(#data >= 12 and data:sub(1, 4) == "RIFF" and data:sub(9, 12) == "WAVE",
        path .. " is not a RIFF/WAVE file")
  local fmt, samples_at, samples_len
  local pos = 13
  while pos + 8 <= #data + 1 do
    local id, len = data:sub(pos, pos + 3), string.unpack("<I4", data, pos + 4)
    local body = pos + 8
    if id == "fmt " then
      local tag, channels, rate, _, _, bits = string.unpack("<I2I2I4I4I2I2", data, body)
      if tag == 0xFFFE and len >= 26 then tag = string.unpack("<I2", data, body + 24) end
      fmt = { tag = tag, channels = channels, rate = rate, bits = bits }
    elseif id == "data" then
      samples_at, samples_len = body, math.min(len, #data - body + 1)
    end
    pos = body + len + (len % 2)
  end
  check(fmt and samples_at, path .. " has no fmt or data chunk")
  local code
  if fmt.tag == 3 and fmt.bits == 32 then code = "<f"
  elseif fmt.tag == 1 and fmt.bits == 16 then code = "<i2"
  elseif fmt.tag == 1 and fmt.bits == 24 then code = "<i3"
  elseif fmt.tag == 1 and fmt.bits == 32 then code = "<i4"
  else fail(string.format("%s: unsupported sample format (tag %d, %d bits)", path, fmt.tag, fmt.bits)) end
  local scale = fmt.tag == 3 and 1 or 2.0 ^ (fmt.bits - 1)
  local width = fmt.bits // 8
  local frames = samples_len // (width * fmt.channels)
  local channels = {}
  for c = 1, fmt.channels do channels[c] = {} end
  local at = samples_at
  for i = 1, frames do
    for c = 1, fmt.channels do
      channels[c][i] = string.unpack(code, data, at) / scale
      at = at + width
    end
  end
  return { rate = fmt.rate, frames = frames, channels = channels }
end

local function to_db(x) return x > 0 and 20 * math.log(x, 10) or -math.huge end

-- RMS of each channel in dBFS, leaving out the start.
local function levels_db(wav)
  local first = math.floor(SKIP_SECONDS * wav.rate) + 1
  check(wav.frames > first, "exported file is too short")
  local levels = {}
  for c, ch in ipairs(wav.channels) do
    local sum = 0
    for i = first, wav.frames do sum = sum + ch[i] * ch[i] end
    levels[c] = to_db(math.sqrt(sum / (wav.frames - first + 1)))
  end
  return levels
end

local function format_levels(levels)
  local parts = {}
  for c, db in ipairs(levels) do parts[c] = string.format("%.3f", db) end
  return table.concat(parts, " / ")
end

-- Checks that every channel of `levels` lies `expected_db` (within `tolerance`) above `reference`.
local function check_change(what, levels, reference, expected_db, tolerance)
  check(#levels == #reference, string.format("%s: %d channels, the reference has %d", what, #levels, #reference))
  local changes = {}
  for c = 1, #levels do
    changes[c] = levels[c] - reference[c]
    check(math.abs(changes[c] - expected_db) <= tolerance,
          string.format("%s: channel %d changed by %.3f dB, expected %.3f dB", what, c, changes[c], expected_db))
  end
  note(string.format("%s: change %s dB (expected %.3f)", what, format_levels(changes), expected_db))
end

------------------------------------------------------------------------------------------------
-- Session helpers

local function start_engine()
  local backend = AudioEngine:set_backend("None (Dummy)", "", "")
  check(backend and not backend:isnil(), "Ardour's Dummy audio backend is not available")
  -- The Dummy backend feeds its capture ports with a generated signal; a steady sine makes
  -- levels comparable between exports. This one gives each port a fixed frequency (1 kHz, a
  -- third of an octave up per port), so that an equalizer's setting sounds the same after
  -- a reload: the plain "Sine Wave" picks another frequency in every run.
  backend:set_device_name("Sine Wave 1K, 1/3 Oct")
end

local function export_wav(name)
  local e = Session:simple_export()
  local preset = env.export_preset ~= "" and env.export_preset
                 or "75969a1c-3133-4694-864b-a1fa50e43348" -- Ardour's "WAV @ session-rate"
  check(e:set_preset(preset), "Ardour has no export preset " .. preset)
  e:set_folder(export_dir)
  e:set_name(name)
  e:set_range(0, EXPORT_SECONDS * RATE)
  check(e:check_outputs(), "the session has no outputs to export")
  check(e:run_export(), "Ardour's export of " .. name .. " failed")
  local wav = read_wav(export_dir .. "/" .. name .. ".wav")
  check(wav.rate == RATE, name .. ".wav has sample rate " .. wav.rate)
  check(wav.frames >= (EXPORT_SECONDS - 0.1) * RATE,
        string.format("%s.wav has %d frames, expected %d", name, wav.frames, EXPORT_SECONDS * RATE))
  local levels = levels_db(wav)
  note(string.format("exported %s.wav: %d frames, levels %s dBFS", name, wav.frames, format_levels(levels)))
  for c, db in ipairs(levels) do
    check(db > SILENT_DB, string.format("%s.wav: channel %d is silent (%.1f dBFS)", name, c, db))
  end
  return levels
end

local function list_plugins_of_type()
  -- Ardour lists some plug-ins more than once.
  local names, seen = {}, {}
  for p in ARDOUR.LuaAPI.list_plugins():iter() do
    if p.type == plugin_type and not seen[p.unique_id] then
      seen[p.unique_id] = true
      names[#names + 1] = string.format("'%s' (%s)", p.name, p.unique_id)
    end
  end
  return names
end

-- The plug-in's input controls by label: { index, id, desc }. `index` is what
-- LuaAPI.set_processor_param takes; `id` is the plug-in's own parameter number.
local function plugin_controls(proc)
  local plug = proc:to_insert():plugin(0)
  local controls = {}
  for n = 0, plug:parameter_count() - 1 do
    local id, refs = plug:nth_parameter(n, false)
    if refs[2] and plug:parameter_is_control(id) and plug:parameter_is_input(id) then
      local _, d = plug:get_parameter_descriptor(id, ARDOUR.ParameterDescriptor())
      controls[plug:parameter_label(id)] = { index = n, id = id, desc = d[2] }
    end
  end
  return controls, plug
end

local function describe_controls(controls)
  local labels = {}
  for label in pairs(controls) do labels[#labels + 1] = label end
  table.sort(labels)
  for _, label in ipairs(labels) do
    local c = controls[label]
    note(string.format("  parameter %d '%s': range %g .. %g, default %g%s", c.id, label,
                       c.desc.lower, c.desc.upper, c.desc.normal, c.desc.toggled and ", toggle" or ""))
  end
end

-- The host value that means `db`. Hosts show either the plug-in's own unit or the normalised
-- 0..1 value; the range tells which.
local function host_value_for_db(desc, db)
  if desc.upper - desc.lower > 1.5 then return db end
  return (db - env.gain_min_db) / (env.gain_max_db - env.gain_min_db)
end

local function read_param(proc, control)
  local value, refs = ARDOUR.LuaAPI.get_processor_param(proc, control.index, false)
  check(refs[3], "cannot read parameter " .. control.id)
  return value
end

local function set_param(proc, control, label, value)
  check(ARDOUR.LuaAPI.set_processor_param(proc, control.index, value),
        string.format("could not set '%s' to %g", label, value))
  local back = read_param(proc, control)
  check(math.abs(back - value) < 1e-4, string.format("'%s' reads back %g after setting %g", label, back, value))
end

-- A copy of the saved session in which Ardour's own records of the gain (its port value and
-- its control) hold the default. Ardour applies the plug-in's state after those, so on reload
-- the gain can only come back from the plug-in's own saved state.
local function write_state_only_snapshot(control)
  local path = session_dir .. "/" .. SESSION_NAME .. ".ardour"
  local text = read_file(path)
  check(text, "the saved session file " .. path .. " is missing")
  local default = string.format("%.9g", control.desc.normal)
  local ports, controls
  text, ports = text:gsub('(<Port id="' .. control.id .. '" value=")[^"]*(")', "%1" .. default .. "%2")
  text, controls = text:gsub('(<Controllable name="' .. env.gain_param .. '"[^>]- value=")[^"]*(")',
                             "%1" .. default .. "%2")
  check(ports == 1 and controls == 1,
        string.format("the session file holds %d port and %d control records of '%s', expected one each",
                      ports, controls, env.gain_param))
  write_file(session_dir .. "/" .. STATE_ONLY_SNAPSHOT .. ".ardour", text)
  note(string.format("wrote snapshot %s with Ardour's copies of '%s' at %s", STATE_ONLY_SNAPSHOT,
                     env.gain_param, default))
end

-- "Label=value,..." as a list of { label, value }.
local function parse_values(text)
  local values = {}
  for label, value in text:gmatch("([^,=]+)=([^,]+)") do
    local number = tonumber(value)
    check(number, string.format("'%s' in QEL_DAW_PROGRAM_VALUES is not a number", value))
    values[#values + 1] = { label = label, value = number }
  end
  check(#values > 0, "QEL_DAW_PROGRAM_VALUES names no control")
  return values
end

local function check_program_values(what, proc, controls)
  for _, want in ipairs(parse_values(env.program_values)) do
    local control = controls[want.label]
    check(control, string.format("%s: the plug-in has no parameter '%s'", what, want.label))
    local value = read_param(proc, control)
    check(math.abs(value - want.value) < 1e-4,
          string.format("%s: '%s' is %g, the program sets %g", what, want.label, value, want.value))
  end
  note(string.format("%s: the controls hold program '%s' (%s)", what, env.program, env.program_values))
end

-- Selects the program from the host's list, checks what it set and how it sounds, and saves
-- the session as a snapshot of its own.
local function save_program_snapshot(proc, controls, plug, default)
  local preset = plug:preset_by_label(env.program)
  check(preset and preset.valid, "the host's program list has no '" .. env.program .. "'")
  check(plug:load_preset(preset), "Ardour could not select program '" .. env.program .. "'")
  check_program_values("program selected", proc, controls)
  local levels = export_wav("program")
  local moved = 0
  for c = 1, #levels do moved = math.max(moved, math.abs(levels[c] - default[c])) end
  check(moved > PROGRAM_AUDIBLE_DB,
        string.format("program '%s' moves no channel's level by more than %.2f dB", env.program, moved))
  check(Session:save_state(PROGRAM_SNAPSHOT, false, false, false, false, false) == 0,
        "saving snapshot " .. PROGRAM_SNAPSHOT .. " failed")
  note(string.format("snapshot %s saved with program '%s'", PROGRAM_SNAPSHOT, env.program))
end

------------------------------------------------------------------------------------------------
-- create

local function create()
  start_engine()
  check(create_session(session_dir, SESSION_NAME, RATE), "could not create a session in " .. session_dir)
  note("session created with backend " .. AudioEngine:current_backend_name())

  local tracks = Session:new_audio_track(2, 2, nil, 1, TRACK_NAME, ARDOUR.PresentationInfo.max_order,
                                         ARDOUR.TrackMode.Normal, true)
  check(tracks:size() == 1, "could not add an audio track")
  local track = tracks:front()
  -- Play what arrives at the track's inputs, so the generated sine runs through the plug-in.
  track:monitoring_control():set_value(ARDOUR.MonitorChoice.MonitorInput, PBD.GroupControlDisposition.NoGroup)

  local dry = export_wav("dry")

  local known = list_plugins_of_type()
  note(string.format("Ardour knows %d %s plug-in(s): %s", #known, env.plugin_type, table.concat(known, ", ")))
  local proc = ARDOUR.LuaAPI.new_plugin(Session, env.plugin, plugin_type, "")
  check(not proc:isnil(), string.format("Ardour found no %s plug-in named '%s'", env.plugin_type, env.plugin))
  check(track:add_processor_by_index(proc, 0, nil, true) == 0, "could not add the plug-in to the track")
  local controls, plug = plugin_controls(proc)
  note(string.format("plug-in '%s' by '%s' added: %d in, %d out", plug:name(), plug:maker(),
                     proc:input_streams():n_audio(), proc:output_streams():n_audio()))
  describe_controls(controls)
  local gain = controls[env.gain_param]
  check(gain, "the plug-in has no parameter '" .. env.gain_param .. "'")

  local default = export_wav("default")
  local changes = {}
  for c = 1, #default do changes[c] = default[c] - (dry[c] or -math.huge) end
  note("plug-in at its defaults against the dry signal: " .. format_levels(changes) .. " dB")
  -- At flat settings the plug-in may colour the sound, but must not move its level much.
  for c = 1, #changes do
    check(math.abs(changes[c]) <= PLAUSIBLE_DEFAULT_DB,
          string.format("at its defaults the plug-in changes channel %d by %.3f dB", c, changes[c]))
  end

  local value = host_value_for_db(gain.desc, env.gain_db)
  check(math.abs(value - gain.desc.normal) > 1e-3,
        string.format("%g dB is the default of '%s'; choose another QEL_DAW_GAIN_DB", env.gain_db, env.gain_param))
  set_param(proc, gain, env.gain_param, value)
  note(string.format("'%s' set to %g (%g dB)", env.gain_param, value, env.gain_db))
  check_change("gain", export_wav("gain"), default, env.gain_db, GAIN_TOLERANCE_DB)

  -- Ardour's own bypass switch drives a plug-in's bypass parameter when the plug-in marks one
  -- as such, and only then.
  local bypass = env.bypass_param ~= "" and controls[env.bypass_param]
  if bypass then
    local insert = proc:to_insert()
    insert:enable(false)
    check(math.abs(read_param(proc, bypass) - bypass.desc.upper) < 1e-4,
          string.format("Ardour's bypass switch did not turn '%s' on: the plug-in does not mark it as its bypass",
                        env.bypass_param))
    check_change("bypass against dry", export_wav("bypass"), dry, 0, GAIN_TOLERANCE_DB)
    insert:enable(true)
    check(math.abs(read_param(proc, bypass) - bypass.desc.lower) < 1e-4,
          "Ardour's bypass switch did not turn '" .. env.bypass_param .. "' off again")
  elseif env.bypass_param ~= "" then
    fail("the plug-in has no parameter '" .. env.bypass_param .. "' (QEL_DAW_BYPASS_PARAM= skips the bypass check)")
  end

  check(Session:save_state("", false, false, false, false, false) == 0, "saving the session failed")
  note(string.format("session saved with '%s' = %g", env.gain_param, value))
  write_state_only_snapshot(gain)
  if env.program ~= "" then save_program_snapshot(proc, controls, plug, default) end
  close_session()
end

------------------------------------------------------------------------------------------------
-- reload

local function reload()
  check(env.snapshot ~= "", "QEL_DAW_SNAPSHOT is not set")
  start_engine()
  check(load_session(session_dir, env.snapshot), "could not load snapshot " .. env.snapshot)
  note("loaded snapshot " .. env.snapshot)

  local route = Session:route_by_name(TRACK_NAME)
  check(not route:isnil(), "track '" .. TRACK_NAME .. "' is missing")
  local proc = route:nth_plugin(0)
  check(not proc:isnil() and not proc:to_insert():isnil(),
        "the track has no plug-in after reload (Ardour could not load it?)")
  local controls, plug = plugin_controls(proc)
  check(plug:name() == env.plugin, "the track's plug-in is '" .. plug:name() .. "', not '" .. env.plugin .. "'")

  if env.snapshot == PROGRAM_SNAPSHOT then
    check_program_values("after reload", proc, controls)
    local saved = levels_db(read_wav(export_dir .. "/program.wav"))
    check_change("reloaded against saved", export_wav("reloaded-" .. env.snapshot), saved, 0, RELOAD_TOLERANCE_DB)
    close_session()
    return
  end

  local gain = controls[env.gain_param]
  check(gain, "after reload the plug-in has no parameter '" .. env.gain_param .. "'")
  local expected = host_value_for_db(gain.desc, env.gain_db)
  local value = read_param(proc, gain)
  note(string.format("after reload '%s' = %g (saved %g)", env.gain_param, value, expected))
  check(math.abs(value - expected) < 1e-4,
        string.format("after reload '%s' is %g, it was saved as %g", env.gain_param, value, expected))
  local bypass = env.bypass_param ~= "" and controls[env.bypass_param]
  if bypass then
    local b = read_param(proc, bypass)
    check(math.abs(b - bypass.desc.lower) < 1e-4,
          string.format("after reload '%s' is %g, it was saved off", env.bypass_param, b))
  end

  local saved = levels_db(read_wav(export_dir .. "/gain.wav"))
  check_change("reloaded against saved", export_wav("reloaded-" .. env.snapshot), saved, 0, RELOAD_TOLERANCE_DB)
  close_session()
end

if env.mode == "create" then create() else reload() end
note(env.mode .. (env.mode == "reload" and (" " .. env.snapshot) or "") .. " passed")
