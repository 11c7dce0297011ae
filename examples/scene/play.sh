#!/usr/bin/env bash
# Plays a scene from life on a copy of the sample device. Needs sonoreld, sonorelctl, example_renderer
# and example_tracker on the PATH; run.sh puts them there.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(mktemp -d)
chmod 755 "$root"  # callers of other uids come in as well
export SONOREL_RUNTIME_DIR=$root/run
cp -r "$here/../device/." "$root"

pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$root"
}
trap cleanup EXIT

act() { printf '\n\033[1m%s\033[0m\n' "$*"; }

# ui METHOD ARG...: one call of the settings UI, with what it got back.
ui() {
    printf '    settings UI -> service  %s\n' "$*"
    local answer
    answer=$(sonorelctl call "$@")
    [ "$answer" = "{}" ] || printf '    settings UI <- service  %s\n' "$answer"
}

# until_true COMPLAINT COMMAND...: waits until the command succeeds, for 15 seconds at most.
until_true() {
    local complaint=$1 tries=0
    shift
    until "$@" 2>/dev/null; do
        tries=$((tries + 1))
        [ "$tries" -lt 300 ] || {
            echo "play.sh: $complaint" >&2
            exit 1
        }
        sleep 0.05
    done
}

# start NAME LINE COMMAND...: starts a process and waits until it has printed a line with LINE.
start() {
    local line=$2 log
    log=$root/$1.log
    shift 2
    "$@" > >(tee "$log") &
    pids+=($!)
    until_true "$1 did not start" grep -q "$line" "$log"
}

# stop PID: ends a process and waits for its last words.
stop() {
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
    # Its output passes through a pipe of its own.
    sleep 0.1
}

act "The service starts on a device with a loudspeaker that takes part in spatial audio"
start sonoreld "SonorelService ready" sonoreld --root "$root"
sonoreld=${pids[-1]}

act "A renderer and the effect centre register, and get what is stored"
start renderer "registered as client 1" example_renderer --id 1 --name renderer
renderer=${pids[-1]}
start effects "registered as client 4" example_renderer --id 4 --name "effect centre"
start ticker "registered as client 3" example_renderer --id 3 --name "tick client"
ticker=${pids[-1]}

act "The user switches spatial audio on, on the loudspeaker"
ui setMetaAudioOn true
ui setMetaAudioMode 2

act "A headset is plugged in: its own settings apply"
ui notitySpHeadsetConnectionState true
ui setMetaAudioOn true
ui setMetaAudioMode 1

act "Head tracking: the tracker sends at 200 Hz for two seconds"
ui setSpatializerState 2
ui setMetaAudioThreadEnable true
example_tracker --rate 200 --seconds 2
ui setMetaAudioThreadEnable false
stop "$ticker"

act "The user moves scene 3, and asks where it stands"
ui javaCallSetCurrentPos 3 0.5,1.0,-0.25
ui javaCallGetCurrentPos 3 0,0,0
ui javaCallGetDefaultPos 3 0,0,0

act "Sound separation: one package is refused, one accepted"
ui setMssEnable com.example.podcasts true
ui setMssEnable com.example.karaoke true
ui setMssTracksGain com.example.karaoke 1.0,0.25,0.5,1.0

act "The renderer crashes; the one that comes back gets everything again, gains included"
kill -KILL "$renderer"
wait "$renderer" 2>/dev/null || true
sleep 0.2  # the service learns of a death within milliseconds
start renderer2 "registered as client 1" example_renderer --id 1 --name renderer

act "The audio server dies and comes back: the renderer gets everything again"
loaded=$(grep -c "policy and settings are loaded" "$root/renderer2.log")
got_again() { [ "$(grep -c "policy and settings are loaded" "$root/renderer2.log")" -gt "$loaded" ]; }
kill -USR1 "$sonoreld"
kill -USR2 "$sonoreld"
until_true "the renderer got nothing" got_again
# What the renderer is asked next waits for the push.
ui setMetaAudioMode 1

act "A game gets its low-latency effect"
ui syncGameListInfo '{"com.example.racer": 1, "com.example.puzzle": 1}'
ui loadPkgSwitchInFastSql
ui setFastGameEffectOn com.example.racer 1

act "Another user takes the device, and gives it back"
ui setCurrentUserID 10
ui setMetaAudioMode 3
ui setCurrentUserID 0

act "A caller without the permission changes nothing"
if [ "$(id -u)" -eq 0 ]; then
    # A stranger may not be able to read the build folder.
    bin=$(dirname "$(command -v sonorelctl)")
    mkdir "$root/stranger"
    cp "$bin/sonorelctl" "$bin"/../lib/*.so "$root/stranger"
    printf '    stranger -> service     setMetaAudioOn false\n'
    LD_LIBRARY_PATH=$root/stranger setpriv --reuid 10099 --regid 10099 --clear-groups \
        "$root/stranger/sonorelctl" call setMetaAudioOn false | sed 's/^/    stranger <- service     /'
    ui getMetaAudioOn
else
    echo "    (left out: another uid needs root)"
fi

act "What the database holds now"
sonorelctl settings --root "$root" | sed 's/^/    /'
