#!/usr/bin/env bash
# Installs the build into a fresh prefix and uses it as a user would: bakes the installed sample
# with the installed tool, reads the manual pages, and completes options through bash-completion.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null

sample=$prefix/share/tenebrix/sample
cd "$prefix"
PATH=$prefix/bin:/usr/bin:/bin tenebrix-bake "$sample" --config "$sample/resource.cfg" \
    --script morning --texture-size 256 --quiet
[ "$(stat -c %s "$sample/texture.dat")" -eq $((256 * 256)) ] || { echo "no 256x256 bake"; exit 1; }
mill=$prefix/share/tenebrix/sample-animated
PATH=$prefix/bin:/usr/bin:/bin tenebrix-bake "$mill" --config "$mill/resource.cfg" \
    --script animated --quiet
[ -s "$mill/texture7.dat" ] && [ -s "$mill/texture7.dah" ] || { echo "no animated bake"; exit 1; }

fail() { echo "$*"; exit 1; }
# The bake as a picture; a machine without any GL says so and is let off.
view=$(PATH=$prefix/bin:/usr/bin:/bin tenebrix-view "$sample" --size 64x48 --png view.png 2>&1) ||
    grep -q "no GL context" <<<"$view" || fail "tenebrix-view: $view"

for tool in tenebrix-bake tenebrix-mkmap tenebrix-import tenebrix-view; do
    [ -x "$prefix/bin/$tool" ] || continue
    page=$prefix/share/man/man1/$tool.1
    completion=$prefix/share/bash-completion/completions/$tool
    [ -s "$completion" ] || fail "$tool: no completion installed"
    # Every option --help lists is in the manual page and is completed.
    options=$("$prefix/bin/$tool" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | sed 's/.*--/--/')
    [ -n "$options" ] || fail "$tool: --help lists no option"
    "$prefix/bin/$tool" --help | awk 'length > 80 { exit 1 }' || fail "$tool: --help is wider than 80"
    if command -v help2man >/dev/null; then
        [ -s "$page" ] || fail "$tool: no manual page installed"
        for option in $options; do
            grep -q -- "${option//-/\\\\-}" "$page" || fail "$tool: $option missing from $page"
        done
    fi
    for option in $options; do
        grep -qE -- "[' ]$option[ ']" "$completion" || fail "$tool: $option is not completed"
    done
done

# The dialog without any display answers in words: help and version, a usage error, no display.
if [ -x "$prefix/bin/tenebrix" ]; then
    dialog() { env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$prefix/bin/tenebrix" "$@" 2>&1; }
    [ "$(dialog --version)" = "tenebrix 0.1.0" ] || fail "dialog --version: $(dialog --version)"
    dialog --help | grep -q '^Usage: tenebrix' || fail "dialog --help: $(dialog --help)"
    for args in --bogus ""; do
        status=0; said=$(dialog $args) || status=$?
        expected=$([ -n "$args" ] && echo "2 tenebrix: unknown option --bogus" ||
                   echo "1 tenebrix: no display to open the dialog on")
        [[ "$status $said" == "$expected"* ]] || fail "dialog $args: $status $said"
    done
fi

# Completion as bash runs it: options by prefix, the words of a fixed choice, files for a file.
if [ -r /usr/share/bash-completion/bash_completion ]; then
    mkdir -p "$prefix/work" && cd "$prefix/work" && touch dawn.ssf dusk.ssf
    complete_line() {
        bash --norc -c '
            source /usr/share/bash-completion/bash_completion
            source "$1"; shift
            COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
            COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
            _tenebrix_bake; printf "%s\n" "${COMPREPLY[@]}" | sort | tr "\n" " "' \
            _ "$prefix/share/bash-completion/completions/tenebrix-bake" "$@"
    }
    [ "$(complete_line tenebrix-bake --thr)" = "--threads " ] || fail "option: $(complete_line tenebrix-bake --thr)"
    [ "$(complete_line tenebrix-bake --crossing '')" = "closed half-open " ] ||
        fail "choice: $(complete_line tenebrix-bake --crossing '')"
    [ "$(complete_line tenebrix-bake --script d)" = "dawn.ssf dusk.ssf " ] ||
        fail "file: $(complete_line tenebrix-bake --script d)"
fi
echo "installed prefix works"
