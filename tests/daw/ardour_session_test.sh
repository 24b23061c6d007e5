#!/usr/bin/env bash
# Loads the plug-in into a real host, Ardour, run headless with its Dummy audio backend:
# Ardour's VST 3 scanner indexes the bundle; a session with one stereo track and the plug-in
# exports audio with the plug-in at its defaults, with its output gain changed and bypassed;
# the session is saved, reloaded (twice: as saved, and with only the plug-in's own state
# holding the gain) and exported again. A snapshot with one of the plug-in's built-in
# programs selected from the host's program list is reloaded and exported as well. The Lua
# script beside this file does the session work inside ardour7-lua and says what it checks.
#
# Usage: ardour_session_test.sh <bundle dir>
#   <bundle dir> is DLC-730.vst3. Everything runs in a fresh temporary HOME into whose .vst3
#   scripts/install-bundle.sh installs the bundle, so no cache or setting of a real user is
#   read or written.
# Environment: ARDOUR_LUA (default: ardour7-lua on PATH), ARDOUR_VST3_SCANNER (default:
# Debian's /usr/lib/ardour7/ardour-vst3-scanner), QEL_DAW_KEEP=1 keeps the work
# folder, QEL_DAW_PLUGIN / QEL_DAW_PLUGIN_TYPE / QEL_DAW_GAIN_PARAM / QEL_DAW_BYPASS_PARAM
# point the script at another plug-in, e.g. to try the harness on one of Ardour's own:
#   QEL_DAW_PLUGIN="ACE Amplifier" QEL_DAW_PLUGIN_TYPE=Lua QEL_DAW_GAIN_PARAM=Gain \
#   QEL_DAW_BYPASS_PARAM= tests/daw/ardour_session_test.sh
# QEL_DAW_PROGRAM / QEL_DAW_PROGRAM_VALUES name the program and what it sets (see the Lua
# script); the program snapshot is a VST 3 one only.
set -uo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
bundle="${1:-}"
lua_tool="${ARDOUR_LUA:-$(command -v ardour7-lua || true)}"
scanner="${ARDOUR_VST3_SCANNER:-/usr/lib/ardour7/ardour-vst3-scanner}"
# A step takes a few seconds, some ten on a loaded machine; four of these limits fit in the
# ctest timeout.
step_timeout="${QEL_DAW_STEP_TIMEOUT:-60}"

fail() { echo "ardour_session_test: FAIL: $*" >&2; exit 1; }

[[ -n "$lua_tool" && -x "$lua_tool" ]] || fail "ardour7-lua not found (install Debian's ardour)"
export QEL_DAW_PLUGIN="${QEL_DAW_PLUGIN:-DLC-730}"
export QEL_DAW_PLUGIN_TYPE="${QEL_DAW_PLUGIN_TYPE:-VST3}"
if [[ "$QEL_DAW_PLUGIN_TYPE" == "VST3" ]]; then
  [[ -n "$bundle" ]] || fail "usage: $0 <bundle dir>"
  [[ -d "$bundle" ]] || fail "no bundle at $bundle"
  module="$bundle/Contents/x86_64-linux/$(basename "$bundle" .vst3).so"
  [[ -f "$module" ]] || fail "the bundle has no module at $module"
fi

# An absolute path: Ardour names a bundle's cache entry after the module's path as spelt, so
# the scanner and the session tool must both see the same absolute one.
work="$(mktemp -d "${TMPDIR:-/tmp}/qel-daw.XXXXXX")" && work="$(cd "$work" && pwd -P)" \
  || fail "cannot make a work folder"
cleanup() {
  if [[ "${QEL_DAW_KEEP:-0}" == "1" ]]; then echo "ardour_session_test: work folder kept: $work"
  else rm -rf "$work"; fi
}
trap cleanup EXIT

# A HOME of our own: Ardour's configuration, plug-in cache and scan log, and the plug-in's own
# user folder all start empty on every run.
export HOME="$work/home"
export XDG_CONFIG_HOME="$HOME/.config" XDG_CACHE_HOME="$HOME/.cache" XDG_DATA_HOME="$HOME/.local/share"
unset XDG_CONFIG_DIRS XDG_DATA_DIRS DISPLAY WAYLAND_DISPLAY JACK_DEFAULT_SERVER
mkdir -p "$HOME/.vst3" "$XDG_CONFIG_HOME/ardour7/export" "$work/export"
# Only our bundle is searched for VST 3 plug-ins.
export VST3_PATH="$HOME/.vst3"
if [[ -n "$bundle" ]]; then
  # Installed the way users install it, into this run's HOME.
  installer="$here/../../scripts/install-bundle.sh"
  if [[ "$(basename "$bundle")" == "DLC-730.vst3" && -x "$installer" ]]; then
    "$installer" "$(dirname "$bundle")" || fail "scripts/install-bundle.sh failed"
  else
    cp -R "$bundle" "$HOME/.vst3/" || fail "could not copy the bundle"
  fi
  [[ -d "$HOME/.vst3/$(basename "$bundle")" ]] || fail "the bundle is not in $HOME/.vst3 after installing"
  # Ardour trusts its scan cache only while the cache file is newer, in whole seconds, than
  # the module: a module copied in the same second as the scan would look changed since, and
  # the session tool would skip it.
  find "$HOME/.vst3" -exec touch -h -d '-1 minute' {} + || fail "could not date the bundle copy"
fi

# Exports as 32-bit float WAV, undithered, so levels compare without dither noise.
cat >"$XDG_CONFIG_HOME/ardour7/export/qel-daw-test.format" <<'EOF'
<?xml version="1.0" encoding="UTF-8"?>
<ExportFormatSpecification name="QEL float WAV" id="5d0b3f0e-1c7a-4f55-9a63-2f7c8a6e0d41" with-cue="false" with-toc="false" with-mp4chaps="false" command="" analyse="false" soundcloud-upload="false">
  <Encoding id="F_WAV" type="T_Sndfile" extension="wav" name="WAV" has-sample-format="true" channel-limit="256"/>
  <SampleRate rate="SR_Session"/>
  <SRCQuality quality="SRC_SincBest"/>
  <EncodingOptions>
    <Option name="sample-format" value="SF_Float"/>
    <Option name="dithering" value="D_None"/>
    <Option name="tag-metadata" value="false"/>
    <Option name="tag-support" value="false"/>
    <Option name="broadcast-info" value="false"/>
  </EncodingOptions>
  <Processing>
    <Normalize enabled="false" loudness="no" dbfs="0" lufs="-23" dbtp="-1"/>
    <Silence>
      <Start><Trim enabled="false"/><Add enabled="false"><Duration format="Timecode" hours="0" minutes="0" seconds="0" frames="0"/></Add></Start>
      <End><Trim enabled="false"/><Add enabled="false"><Duration format="Timecode" hours="0" minutes="0" seconds="0" frames="0"/></Add></End>
    </Silence>
  </Processing>
</ExportFormatSpecification>
EOF
cat >"$XDG_CONFIG_HOME/ardour7/export/qel-daw-test.preset" <<'EOF'
<?xml version="1.0" encoding="UTF-8"?>
<ExportPreset id="8f1d2c4b-6a3e-4b7d-9c05-3e2a1f6b7d90" name="QEL float WAV">
  <ExportFormat id="5d0b3f0e-1c7a-4f55-9a63-2f7c8a6e0d41"/>
  <ExportFilename>
    <Folder relative="1" path="export"/>
    <Field name="label" enabled="0"/>
    <Field name="session" enabled="0"/>
    <Field name="snapshot" enabled="0"/>
    <Field name="timespan" enabled="1"/>
    <Field name="revision" enabled="0"/>
    <Field name="time" enabled="0" value="T_None"/>
    <Field name="date" enabled="0" value="D_None"/>
  </ExportFilename>
</ExportPreset>
EOF
export QEL_DAW_EXPORT_PRESET="8f1d2c4b-6a3e-4b7d-9c05-3e2a1f6b7d90"
export QEL_DAW_DIR="$work"

# Ardour's log lines that say nothing about this test.
quiet() {
  grep -v -E '^\[ERROR\]: Ignored format .*MP3|Falling back to Reasonable Synth|^Butler drops pool trash|^lua/(audioengine|unknown) .*call.slot'
}

run_step() {
  local what="$1"; shift
  echo "--- $what"
  local began=$SECONDS
  timeout -k 10 "$step_timeout" "$@" 2>&1 | quiet
  local rc=${PIPESTATUS[0]}
  echo "--- $what: $((SECONDS - began)) s"
  if ((rc == 124 || rc == 137)); then fail "$what: timed out after ${step_timeout}s"; fi
  if ((rc > 128)); then fail "$what: crashed with signal $((rc - 128))"; fi
  ((rc == 0)) || fail "$what: exited with status $rc (see the FAIL line above)"
}

if [[ "$QEL_DAW_PLUGIN_TYPE" == "VST3" ]]; then
  # The Lua session tool never scans: it only reads the cache that Ardour's scanner writes.
  # Running the scanner here also puts what it found, or why it failed, in this test's log.
  [[ -x "$scanner" ]] || fail "Ardour's VST 3 scanner is not at $scanner"
  run_step "VST 3 scan" env LD_LIBRARY_PATH="$(dirname "$scanner")" \
    "$scanner" -f -v "$HOME/.vst3/$(basename "$bundle")"
  # The scanner exits 0 even when it could not load the module; its cache entry tells.
  compgen -G "$XDG_CACHE_HOME/ardour7/vst/*.v3i" >/dev/null \
    || fail "Ardour's VST 3 scanner could not index the bundle (see its output above)"
fi

# Other kinds of plug-in have no program list to choose from.
[[ "$QEL_DAW_PLUGIN_TYPE" == "VST3" ]] || export QEL_DAW_PROGRAM=""

start=$SECONDS
QEL_DAW_MODE=create run_step "session: create, export, save" "$lua_tool" "$here/ardour_session_test.lua"
# The saved session as it is, then the copy in which only the plug-in's own state holds the
# gain (Ardour's own plug-ins used to try this harness keep no state beyond their controls).
snapshots=(daw-test)
[[ "$QEL_DAW_PLUGIN_TYPE" == "VST3" ]] && snapshots+=(daw-test-state-only)
# Then the one with a built-in program selected, unless QEL_DAW_PROGRAM is set empty.
[[ -n "${QEL_DAW_PROGRAM-x}" ]] && snapshots+=(daw-test-program)
for snapshot in "${snapshots[@]}"; do
  QEL_DAW_MODE=reload QEL_DAW_SNAPSHOT=$snapshot \
    run_step "session: reload $snapshot, check, export" "$lua_tool" "$here/ardour_session_test.lua"
done
echo "ardour_session_test: passed in $((SECONDS - start)) s"
