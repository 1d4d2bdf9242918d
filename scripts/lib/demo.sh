# The acts of the demo. Sourced after the other libraries.

heading() {
    printf '\n== %s\n' "$1"
}

build() {
    echo "Building (the first time takes a while) ..."
    if ! { cmake --preset dev && cmake --build --preset dev; } </dev/null >"$root/log/build" 2>&1; then
        tail -n 30 "$root/log/build"
        die "the build failed"
    fi
}

lay_out_device() {
    device/make-device "$root" "$programs" || die "the device could not be laid out"
}

start_device() {
    start_bus || die "the bus does not start"
    local module
    for module in ApplicationManager SettingsManager Scheduler; do
        start_module "$module" || die "$module does not start: $(tail -n 3 "$root/log/$module.log")"
    done
    while read -r module _; do
        wait_until 20 owns_name "$module" || die "module $module does not start"
    done < <(list_modules)
    start_module VYXSaveRestore || die "the service does not start: $(tail -n 3 "$root/log/VYXSaveRestore.log")"
}

show_device() {
    local module pid
    heading "The device: modules and their data"
    while read -r module pid; do
        printf '   %s pid %-7s %4d kB, %2d files%s\n' "$(pad "$module" 10)" "$pid" \
            "$(du -sk "$live/$module" | cut -f 1)" "$(find "$live/$module" -type f | wc -l)" \
            "$([ -e "$root/etc/VYXApplication/module/$module/restorable.xml" ] || echo ', nothing to save')"
    done < <(list_modules)
    echo "   Save groups:"
    sed -n 's/.*: Save group #/      #/p' "$root/log/VYXSaveRestore.log"
}

phonebook_release=2026.1::4.2.1

# Name, inode and time of change of each entry: it differs exactly when an entry was written.
snapshot() {
    find "$repository" -mindepth 1 -printf '%P\t%i %C@\n' | sort
}

paused_modules() {
    local module pid letter
    while read -r module pid; do
        { read -r _ _ letter _ <"/proc/$pid/stat"; } 2>/dev/null || letter=gone
        case $letter in
        [TtZ] | gone)
            echo "$module is in state $letter"
            ;;
        esac
    done < <(list_modules)
}

all_modules_run() {
    [ -z "$(paused_modules)" ] || {
        paused_modules
        return 1
    }
}

# What every operation is compared with afterwards; `service_log` shows the log from here on.
note_state_before() {
    snapshot >"$root/log/before"
    log_start=$(($(wc -l <"$root/log/VYXSaveRestore.log") + 1))
    rows_before=$(sqlite3 -batch "$live/Recorder/samples.data" 'SELECT count(*) FROM samples')
}

# timed_call METHOD : calls the service and sets `reply` and `call_time`, in seconds.
timed_call() {
    local started=$EPOCHREALTIME status
    reply=$(call VYXSaveRestore "$1" 2>&1)
    status=$?
    call_time=$(awk -v a="$started" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.1f", b - a }')
    return "$status"
}

run_save() {
    note_state_before
    start_watching
    timed_call startSaveOnRepository
    stop_watching
    snapshot >"$root/log/after"
    if [ "$reply" != "b true" ]; then
        service_log | grep -E "^(warning|error)" | tail -n 10
        die "the save failed: $reply"
    fi
    echo "   The save took $call_time s."
    check "all modules run again" "" all_modules_run
}

service_log() {
    sed -n "$log_start,\$p" "$root/log/VYXSaveRestore.log"
}

# One line for each save group: number, modules, and how long they were paused.
list_group_pauses() {
    local number names
    while IFS=$'\t' read -r number names; do
        printf '%s\t%s\t' "$number" "$names"
        list_pauses | awk -F '\t' -v names=" $names " '
            index(names, " " $1 " ") {
                if (first == "" || $3 < first) first = $3
                if ($3 + $2 > last) last = $3 + $2
                count++
            }
            END { printf "%4d ms, %d of its modules\n", last - first, count }'
    done < <(sed -nE 's/.*: Save group (#[0-9]+): (.*)/\1\t\2/p' "$root/log/VYXSaveRestore.log")
}

show_pauses() {
    local number names paused
    echo
    echo "   How long the modules of each save group were paused (seen in /proc):"
    while IFS=$'\t' read -r number names paused; do
        printf '      %s %s: %s\n' "$number" "$(pad "$names" 32)" "$paused"
    done < <(list_group_pauses)
}

count_lines() {
    service_log | grep -cE "debug [^:]*: $1 file: "
}

show_transfers() {
    local total
    total=$(list_pauses | awk -F '\t' '$2 > longest { longest = $2; name = $1 } END { print longest + 0 " ms (" name ")" }')
    echo
    echo "   Longest pause of a module: $total"
    echo "   Items new: $(count_lines New), updated: $(count_lines Update), the same and not sent: $(count_lines Same), removed: $(count_lines Remove)"
    if [ "$(count_lines Same)" -gt 0 ]; then
        service_log | grep -E 'debug [^:]*: (New|Update|Remove) file: ' | sed -E 's/^debug [^:]*: /      /'
    fi
}

verify_repository() {
    accounted=([modules-list.sav]=1)
    lines_seen=()
    whole_database PhoneBook contacts
    partial_database PhoneBook calls \
        calls "SELECT * FROM calls WHERE direction IN ('incoming', 'outgoing') AND seconds > 0" \
        favourites 'SELECT * FROM favourites'
    plain_file PhoneBook ringtones.conf
    plain_file PhoneBook conf/dialling.xml
    whole_database Navigator places
    plain_file Navigator navigator.ini
    archive Navigator routes
    partial_database Guide programmes reminder 'SELECT * FROM reminder'
    plain_file Guide guide.ini
    written_database Recorder samples samples "$rows_before"
    plain_file Recorder recorder.conf
    archive Recorder conf/logs
    unzipped_directory Gallery 'My Pictures'
    archive Gallery 'Ålbum (1)'
    plain_file Gallery gallery.ini
    local module
    for module in Radio Tuner; do
        whole_database "$module" stations
        plain_file "$module" presets.conf "$module++"
        plain_file "$module" conf/state.ini "$module++"
    done
    module_files PhoneBook "$phonebook_release"
    module_files Navigator 2026.1::7.0.3
    module_files Guide 2026.1::2.5.0
    module_files Recorder 2026.1::3.1.0
    module_files Gallery 2025.4::1.8.2
    module_files Radio 2026.1::5.0.0
    module_files Tuner 2025.4::2.2.0
    migration_program PhoneBook
    migration_program Radio
    check modules-list.sav "the seven modules with data to save" \
        modules_list_is PhoneBook Navigator Guide Recorder Gallery Radio Tuner
    check "the repository" "holds nothing else" nothing_else
}

change_data() {
    echo "   contacts: one contact changed, one added      Radio: presets.conf changed"
    echo "   routes: a file added (zipped directory)       My Pictures: one removed, one added"
    echo
    sqlite3 -batch "$live/PhoneBook/contacts.data" "UPDATE contact SET note = 'moved to \"Köln\"' WHERE id = 1" \
        "INSERT INTO contact VALUES (1000, 'D''Angelo', 'Zoë', '+39 06 5550 100', NULL)"
    echo '4=97.3' >>"$live/Radio/presets.conf"
    echo '<gpx><rte><name>lake</name></rte></gpx>' >"$live/Navigator/routes/to the lake.gpx"
    rm -- "$live/Gallery/My Pictures/-rf.jpg"
    head -c 30000 /dev/urandom >"$live/Gallery/My Pictures/new [2] \"friends\".jpg"
}

equal_sets() {
    diff <(printf '%s\n' "$1" | sed '/^$/d' | sort) <(printf '%s\n' "$2" | sed '/^$/d' | sort)
}

# sent_exactly MODULES ENTRY... : these entries were written, the checksum files of these modules and of the Recorder,
# which writes all the time, and no other. The Recorder may have written to its database file itself, or to its log.
sent_exactly() {
    local expected actual modules=$1
    shift
    expected=$(printf '%s.cksum\n' Recorder $modules && printf '%s\n' Recorder++samples.dump.gz "$@")
    actual=$(comm -13 "$root/log/before" "$root/log/after" | cut -f 1 | grep -vx Recorder.attributes)
    check "only what changed was sent" "" equal_sets "$expected" "$actual"
}

removed_exactly() {
    local expected actual
    expected=$(printf '%s\n' "$@")
    actual=$(comm -23 <(cut -f 1 "$root/log/before") <(cut -f 1 "$root/log/after"))
    check "only what disappeared was removed" "" equal_sets "$expected" "$actual"
}

show_tally() {
    local what=${1:-Every entry compared with the live data again, and every entry that was written}
    echo "   $what: $checks checks so far, $failures failed."
}

show_commands() {
    heading "The device stays up below $root"
    echo "   The service's log: $root/log/VYXSaveRestore.log"
    echo "   For this shell; docs/operations.md has an example of every call:"
    echo
    echo "export DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SYSTEM_BUS_ADDRESS"
    echo "vyx() { busctl --timeout=30min call $bus_prefix.\$1 /com/corvane/Pelorin/\$1 $bus_prefix.VYXInterface \"\${@:2}\"; }"
    echo "vyx VYXSaveRestore printSettings"
    echo "vyx VYXSaveRestore startRestoreFromRepository"
    echo "vyx Scheduler printTasks"
    echo
    echo "   To end it all and remove its data:"
    echo
    echo "kill ${process[server]:-} ${process[VYXSaveRestore]} ${process[ApplicationManager]} ${process[SettingsManager]} ${process[Scheduler]}; sleep 4; kill ${process[bus]}; rm -rf $root"
}
