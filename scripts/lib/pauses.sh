# Measuring how long modules are paused, from /proc alone. Sourced; expects the variable `root`.

# Note each change of state of each module, given as NAME PID pairs, until the file "watching" is gone.
watch_states() {
    local -A pid_of=() state_of=()
    local module letter tick
    while [ $# -ge 2 ]; do
        pid_of[$1]=$2
        shift 2
    done
    mkfifo "$root/tick"
    exec {tick}<>"$root/tick"
    while [ -e "$root/watching" ]; do
        for module in "${!pid_of[@]}"; do
            letter=gone
            { read -r _ _ letter _ <"/proc/${pid_of[$module]}/stat"; } 2>/dev/null
            [ "$letter" = T ] || letter=runs
            if [ "$letter" != "${state_of[$module]:-runs}" ]; then
                printf '%s\t%s\t%s\n' "$EPOCHREALTIME" "$module" "$letter"
                state_of[$module]=$letter
            fi
        done
        read -r -t 0.004 -u "$tick" || true
    done
    exec {tick}>&-
    rm -f "$root/tick"
}

start_watching() {
    local modules=()
    mapfile -t modules < <(list_modules | tr '\t' '\n')
    : >"$root/watching"
    watch_states "${modules[@]}" >"$root/log/states" 2>/dev/null </dev/null &
    watcher=$!
}

stop_watching() {
    rm -f "$root/watching"
    wait "$watcher" 2>/dev/null
    watcher=
}

# Print each pause: module, milliseconds, start in milliseconds after the first one; in the order of their starts.
list_pauses() {
    awk -F '\t' '
        { time = $1; sub(",", ".", time); time *= 1000 }
        first == "" { first = time }
        $3 == "T" { start[$2] = time }
        $3 == "runs" && ($2 in start) {
            printf "%d\t%s\t%d\n", start[$2] - first, $2, time - start[$2]
            delete start[$2]
        }' "$root/log/states" | sort -n | awk -F '\t' '{ print $2 "\t" $3 "\t" $1 }'
}
