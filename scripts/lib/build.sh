# Showing on one line how far something long is, and building. Sourced, in the project's directory.

on_terminal=false columns=80
if [ -t 1 ] && [ "${TERM:-dumb}" != dumb ]; then
    on_terminal=true
    read -r _ columns < <(stty size </dev/tty 2>/dev/null) && [ "$columns" -gt 0 ] || columns=80
fi

# progress TEXT : in place of the progress shown before, on a terminal; nothing anywhere else.
progress() {
    if $on_terminal; then
        printf '\r\033[K%s' "${1:0:columns-1}"
    fi
}

# step TEXT : a line that stays, in place of the progress.
step() {
    if $on_terminal; then
        printf '\r\033[K'
    fi
    printf '%s\n' "$1"
}

# The lines of a build that has failed, without those that say how far it was.
show_failed_build() {
    if grep -q '^FAILED: ' "$1"; then
        sed -n '/^FAILED: /,$p' "$1" | grep -v '^\[[0-9]*/[0-9]*\] '
    else
        tail -n 30 "$1"
    fi | head -n 100
    echo "build: all of it is in $1"
}

# build PRESET : configures and builds; what was said is in the preset's directory, and shown when it fails.
build() {
    local log=build/$1/build.log begin=$SECONDS line steps=0
    mkdir -p "${log%/*}" || return
    $on_terminal || echo "build: $1 ..."
    while IFS= read -r line; do
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\]' ' ]]; then
            steps=${BASH_REMATCH[2]}
            progress "build: $1 $line"
        else
            progress "build: $1: $line"
        fi
    done < <(set -o pipefail; { cmake --preset "$1" && cmake --build --preset "$1"; } </dev/null 2>&1 | tee "$log")
    if ! wait $!; then
        step "build: $1 FAILED after $((SECONDS - begin)) s:"
        show_failed_build "$log"
        return 1
    fi
    step "build: $1, $steps steps in $((SECONDS - begin)) s"
}
