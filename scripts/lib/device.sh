# Starting, calling and ending a stand-in device, for tests that are scripts. Sourced; expects the variables `root` (the device root) and
# `programs` (directory of the built programs).

bus_prefix=com.corvane.Pelorin
declare -A process=()

start_bus() {
    export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$root/bus
    export VYX_DEVICE_ROOT=$root VYX_LOG_LEVEL=7
    start_program bus dbus-daemon --config-file=device/bus.conf \
        "--address=$DBUS_SYSTEM_BUS_ADDRESS" --nofork
    wait_until 10 bus_answers
}

# The socket exists a moment before the bus listens on it.
bus_answers() {
    busctl "--address=$DBUS_SYSTEM_BUS_ADDRESS" --timeout=5 call org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus GetId >/dev/null 2>&1
}

# In a session of its own, so that neither Ctrl-C nor the end of the terminal reaches it.
start_program() {
    local name=$1
    shift
    setsid "$@" </dev/null >"$root/log/$name.log" 2>&1 &
    process[$name]=$!
}

start_module() {
    start_program "$1" "$programs/$1"
    wait_until 20 owns_name "$1"
}

owns_name() {
    [ "$(busctl "--address=$DBUS_SYSTEM_BUS_ADDRESS" --timeout=5 call org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus NameHasOwner s "$bus_prefix.$1" 2>/dev/null)" = "b true" ]
}

# wait_until SECONDS COMMAND... : until the command succeeds, at most that long.
wait_until() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        if [ "$SECONDS" -ge "$end" ]; then
            return 1
        fi
        sleep 0.1
    done
}

# call MODULE METHOD [SIGNATURE ARGUMENT...]
call() {
    local module=$1
    shift
    busctl "--address=$DBUS_SYSTEM_BUS_ADDRESS" --timeout=300 call "$bus_prefix.$module" \
        "/com/corvane/Pelorin/$module" "$bus_prefix.VYXInterface" "$@"
}

is_alive() {
    kill -0 "$1" 2>/dev/null
}

stop_process() {
    local pid=${process[$1]:-} end=$((SECONDS + 8))
    unset "process[$1]"
    if [ -z "$pid" ] || ! is_alive "$pid"; then
        return
    fi
    kill -TERM "$pid" 2>/dev/null
    while is_alive "$pid" && [ "$SECONDS" -lt "$end" ]; do
        sleep 0.05
    done
    kill -KILL "$pid" 2>/dev/null
}

stop_device() {
    local name
    for name in VYXSaveRestore ApplicationManager SettingsManager Scheduler bus; do
        stop_process "$name"
    done
}
