#!/usr/bin/env bash
# Photographs the setup dialog and the viewer on a virtual X screen: the dialog in the middle of a
# bake, the viewer showing its result, and the dialog once the viewer has closed.
# Usage: scripts/screenshot.sh APP OUT.png
#   APP: the tenebrix program; OUT.png: where the picture of the running bake goes; beside it
#   viewer.png, the viewer after a few mouse moves and a held button, and OUT-done.png, the
#   dialog given back by Escape. The bake runs on a copy of data/sample beside OUT.png, with a
#   script slow enough that it is still running when the first picture is taken.
set -euo pipefail

die() {
  echo "screenshot: $*" >&2
  exit 1
}

[ $# -eq 2 ] || die "usage: $0 APP OUT.png"
root=$(cd "$(dirname "$0")/.." && pwd)
app=$(realpath -m "$1")
out=$(realpath -m "$2")
[ -x "$app" ] || die "$1: no such program (build it first: make build)"

"$root/scripts/install-deps.sh" --screenshot

# The sample map in a folder of its own (map/), so its path has no dot before the type letter,
# and one script in LIT: sixteen samples a side per texel keep the bake busy for a few seconds.
work=$(dirname "$out")/sample
rm -rf "$work"
mkdir -p "$work/map"
cp -r "$root/data/sample/." "$work/"
mv "$work/test.vbf" "$work/map/"
rm -f "$work"/lit/*.ssf "$work/texture.dat" "$work/test.lit"
cat >"$work/lit/slow.ssf" <<'EOF'
LIGHT 0.80 0.35 0.25
LIGHT_COLOUR 255 226 190
SHADOW_COLOUR 20 24 48
AMBIENT 64
TEXTURE_SIZE 2048
OVERSAMPLE 16
SCRIPT morning.lit
EOF
printf '%s' "$work/map" >"$work/LastShadow.txt"

xvfb_pid=""
app_pid=""
stop() {
  [ -n "$1" ] || return 0
  kill "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}
cleanup() {
  local status=$?
  stop "$app_pid"
  stop "$xvfb_pid"
  exit "$status"
}
trap cleanup EXIT

# Xvfb picks a free display itself and writes its number to fd 3.
Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
xvfb_pid=$!
for _ in $(seq 50); do
  [ -s "$work/display" ] && break
  kill -0 "$xvfb_pid" 2>/dev/null || die "Xvfb did not start: $(cat "$work/xvfb.log")"
  sleep 0.1
done
[ -s "$work/display" ] || die "Xvfb gave no display number"
export DISPLAY=":$(head -n1 "$work/display")"
export QT_QPA_PLATFORM=xcb
unset WAYLAND_DISPLAY

alive() {
  kill -0 "$app_pid" 2>/dev/null && return 0
  local status=0
  wait "$app_pid" || status=$?
  app_pid=""
  die "tenebrix ended early (exit status $status) $1; its output:
$(cat "$work/app.log")"
}

(cd "$work" && exec "$app") >"$work/app.log" 2>&1 &
app_pid=$!
# Sets found to the first visible window titled $1 within $2 tries 0.2 s apart, while the
# program lives ($3 says when, for the message if it dies); empty if none showed.
found=""
shown() {
  found=""
  for _ in $(seq "$2"); do
    alive "$3"
    found=$(xdotool search --onlyvisible --name "^$1\$" 2>/dev/null | head -n1) || true
    [ -n "$found" ] && return 0
    sleep 0.2
  done
}

title="Parameters for Shadow Generator"
shown "$title" 100 "before its dialog showed"
window=$found
[ -n "$window" ] || die "the dialog \"$title\" did not show within 20 s"

# The dialog rewrites LastShadow.txt only once it has accepted the map and the script: its
# return says that the bake has begun.
rm -f "$work/LastShadow.txt"
timeout 5 xdotool windowfocus --sync "$window" 2>/dev/null || true
xdotool key --clearmodifiers alt+m   # ticks "Display &Map when finished"
sleep 0.5                            # the toolkit ticks it after a short press animation
xdotool key --clearmodifiers Return  # "&Create Shadows" is the default button
for _ in $(seq 50); do
  [ -f "$work/LastShadow.txt" ] && break
  alive "after Enter"
  sleep 0.2
done
if [ ! -f "$work/LastShadow.txt" ]; then
  xwd -root -silent | xwdtopnm 2>/dev/null | pnmtopng >"${out%.png}-failed.png" 2>/dev/null
  die "the bake did not start (see ${out%.png}-failed.png)"
fi

sleep "${SCREENSHOT_DELAY:-1}"  # the bar under way, short of the bake's end (a few seconds)
alive "during the bake"
[ -f "$work/map/texture.dat" ] && die "the bake ended before the picture: make the script slower"
mkdir -p "$(dirname "$out")"
photograph() {
  xwd -root -silent | xwdtopnm 2>/dev/null | pnmtopng >"$1"
  [ -s "$1" ] || die "no picture was written to $1"
  echo "screenshot: $1"
}
photograph "$out"

# The light description is copied beside the map as the run ends, then the viewer shows.
for _ in $(seq 600); do
  [ -f "$work/map/test.lit" ] && break
  alive "before the bake ended"
  sleep 0.2
done
[ -f "$work/map/test.lit" ] || die "the bake did not end within two minutes"
shown Viewer 50 "after the bake"
viewer=$found
if [ -z "$viewer" ]; then
  photograph "${out%.png}-failed.png"
  die "the viewer did not show after the bake (see ${out%.png}-failed.png and $work/app.log)"
fi

# The viewer holds the pointer at (320, 200) and reads each move as an offset from there. It
# starts over the map's corner looking away from it: pan the focus towards the map's middle, turn
# the view half round with Shift (8 pixels a degree), then come nearer with the left button held.
move() {
  for _ in $(seq "$1"); do
    xdotool mousemove "$2" "$3"
    sleep 0.04
  done
}
sleep 0.5
move 60 330 210
xdotool keydown shift
move 60 344 200
xdotool keyup shift
xdotool mousedown 1
sleep 0.15
xdotool mouseup 1
sleep 0.5
alive "in the viewer"
photograph "$(dirname "$out")/viewer.png"

timeout 5 xdotool windowfocus --sync "$viewer" 2>/dev/null || true
xdotool key --clearmodifiers Escape
for _ in $(seq 50); do
  xdotool search --onlyvisible --name '^Viewer$' >/dev/null 2>&1 || break
  alive "after Escape"
  sleep 0.2
done
sleep 0.5
alive "after the viewer"
photograph "${out%.png}-done.png"
