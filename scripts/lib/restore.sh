# The acts of the demo that restore. Sourced after the other libraries.

# What each live file was like when it was saved.
note_saved_state() {
    list_times >"$root/log/times.saved"
    list_owners >"$root/log/owners"
}

# What the next restore finds: see `fate` and `merged_database`.
note_damaged_state() {
    list_times >"$root/log/times"
    rm -rf "$damaged"
    mkdir "$damaged"
    cp -a "$live/PhoneBook/calls.data" "$live/Guide/programmes.data" "$live/Navigator/routes/new.gpx" "$damaged"
}

damage_databases() {
    : >"$live/PhoneBook/contacts.data"
    truncate -s 5000 "$live/Navigator/places.data"
    rm -f "$live/Tuner/stations.data"{,-journal,-wal,-shm}
    sqlite3 -batch "$live/PhoneBook/calls.data" \
        "DELETE FROM calls WHERE direction = 'outgoing'" "DELETE FROM calls WHERE id = 8" \
        "UPDATE calls SET number = '?', started = NULL WHERE id % 5 = 0" \
        "INSERT INTO calls VALUES (1000, '+49 30 5550199', 'incoming', '2026-03-09 10:00:00', 60)" \
        "DELETE FROM favourites WHERE contact = 2" \
        "UPDATE favourites SET label = 'nobody', speed_dial = 9 WHERE contact = 1" \
        "INSERT INTO signalling_trace VALUES (3, x'00FF')" "UPDATE signalling_trace SET packet = NULL WHERE id = 1"
    sqlite3 -batch "$live/Guide/programmes.data" \
        "DELETE FROM reminder WHERE id = 1" "UPDATE reminder SET title = 'x' WHERE id = 2" \
        "DELETE FROM broadcast WHERE id > 490"
    sqlite3 -batch -cmd '.timeout 5000' "$live/Recorder/samples.data" 'DELETE FROM samples WHERE id <= 100'
}

damage_files() {
    echo 'default=beep' >"$live/PhoneBook/ringtones.conf"
    printf '#' | dd of="$live/Navigator/navigator.ini" bs=1 seek=8 conv=notrunc status=none
    rm "$live/Radio/presets.conf"
    rm -r "$live/PhoneBook/conf" "$live/Tuner/conf" "$live/Recorder/conf/logs" "$live/Gallery/My Pictures"
    echo 'lost' >"$live/Navigator/routes/holiday/alps.trk"
    rm "$live/Navigator/routes/to work.gpx"
    echo '<gpx><rte><name>new</name></rte></gpx>' >"$live/Navigator/routes/new.gpx"
}

damage_device() {
    note_saved_state
    damage_databases
    damage_files
    note_damaged_state
    cat <<'EOT'
   PhoneBook   contacts.data cut to 0 bytes; ringtones.conf overwritten; conf/ deleted
               calls.data (partly saved): calls and favourites deleted and edited, one call and one trace added
   Navigator   places.data cut in the middle; navigator.ini: one byte
               routes/ (zipped): one file overwritten, one deleted, one added
   Guide       programmes.data (partly saved): reminders deleted and edited, the programme as well
   Recorder    samples.data: 100 rows deleted; conf/logs/ (zipped) deleted
   Gallery     My Pictures/ deleted            Radio   presets.conf deleted
   Tuner       stations.data and conf/ deleted
EOT
}

# The checks that are made after the restore, before it: they must find the damage.
expect_damage() {
    local found
    found=$(
        failures=0 verbose=false
        verify_items >/dev/null
        echo "$failures"
    )
    check "the checks of the restore find all of it" "$found items differ" test "$found" -eq "$1"
}

verify_items() {
    restored_database PhoneBook contacts
    merged_database PhoneBook calls signalling_trace calls id favourites contact
    restored_file PhoneBook ringtones.conf
    restored_file PhoneBook conf/dialling.xml
    restored_database Navigator places
    restored_file Navigator navigator.ini
    restored_archive Navigator routes new.gpx
    merged_database Guide programmes broadcast reminder id
    restored_file Guide guide.ini
    rewritten_database Recorder samples samples
    restored_file Recorder recorder.conf
    restored_archive Recorder conf/logs
    restored_files Gallery 'My Pictures'
    restored_archive Gallery 'Ålbum (1)'
    restored_file Gallery gallery.ini
    local module
    for module in Radio Tuner; do
        restored_database "$module" stations
        restored_file "$module" presets.conf "$module++"
        restored_file "$module" conf/state.ini "$module++"
    done
}

pauses_in_one_line() {
    list_group_pauses | awk -F '\t' '{
        sub(/^ */, "", $3); sub(/,.*/, "", $3)
        printf "%s%s %s", separator, $1, $3; separator = ", "
    }'
}

run_restore() {
    modules_before=$(list_modules)
    note_state_before
    start_watching
    if ! timed_call startRestoreFromRepository; then
        stop_watching
        die "the restore failed: $reply"
    fi
    stop_watching
    echo "   The restore took $call_time s. Pause of each save group: $(pauses_in_one_line)"
    echo "   Items fetched: $(fetched_items | wc -l), the same and left alone: $(kept_items | wc -l)"
    echo
}

show_fetched() {
    echo "   A database that was restored is another file than the saved one, so it is fetched again. Fetched:"
    fetched_items | paste -sd , | sed 's/,/, /g; s/^/      /'
    echo
}

# verify_run [ADDED...] : the files that were added since the save.
verify_run() {
    check "the service reports the end, and no error" "but for what was missing" reported_well
    check "all modules run, in the same processes" "" same_processes
    check "no data that were set aside are left behind" "" nothing_left_behind
    check "owners and modes as before" "" owners_are_kept "$@"
    check "the repository" "not touched" diff "$root/log/before" <(snapshot)
}

reported_well() {
    logs_no_error && [ "$(service_log | grep -c ': Restore finished (.*PhoneBook.*)')" -eq 1 ]
}

verify_restore() {
    verify_items
    local pictures
    mapfile -t pictures < <(saved_files_below Gallery 'My Pictures')
    fetched_exactly PhoneBook/contacts.data PhoneBook/calls.data ringtones.conf conf/dialling.xml \
        Navigator/places.data navigator.ini Navigator/routes.tar Guide/programmes.data Recorder/samples.data \
        Recorder/conf/logs.tar presets.conf Tuner/stations.data conf/state.ini "${pictures[@]}"
    untouched '^\./(Recorder/samples\.data|Navigator/routes/)'
    verify_run ./Navigator/routes/new.gpx
}

manager_log() {
    sed -n "$manager_log_start,\$p" "$root/log/ApplicationManager.log"
}

manager_says() {
    manager_log | grep -qF "$1"
}

# PhoneBook is of another release than the one whose data are saved. Its migration program gives a start to
# calls without one; a missed call is not saved, so nothing else does.
update_phonebook() {
    manager_log_start=$(($(wc -l <"$root/log/ApplicationManager.log") + 1))
    [ "$(call ApplicationManager setModuleRelease sss PhoneBook 2026.2 4.3.0)" = "b true" ] ||
        die "no other release for PhoneBook"
    phonebook_release=2026.2::4.3.0
    note_saved_state
    sqlite3 -batch "$live/PhoneBook/contacts.data" 'DELETE FROM contact WHERE id > 300'
    sqlite3 -batch "$live/PhoneBook/calls.data" 'UPDATE calls SET started = NULL WHERE id = 4'
    note_damaged_state
    sqlite3 -batch "$damaged/calls.data" "UPDATE calls SET started = '1970-01-01 00:00:00' WHERE started IS NULL"
}

verify_migration() {
    wait_until 20 manager_says "Migration of module 'PhoneBook' done"
    service_log | sed -n 's/^debug [^:]*: \(Start migration process\)/   VYXSaveRestore: \1/p'
    manager_log | sed -nE 's/^([a-z]+ [^:]*: )?(Migration of module|PhoneBook migrated)/   ApplicationManager: \2/p'
    echo
    check "the service asks for this migration alone" "from 2026.1 to 2026.2" asks_for_migration
    check "the ApplicationManager ran the program" "to its end" \
        manager_says "Migration of module 'PhoneBook' done"
    check "the program did its work" "a call without a start has one" call_has_start 4
}

asks_for_migration() {
    equal_sets "$(log_keys '(Start migration process .*)')" \
        "Start migration process for module 'PhoneBook' : '2026.1' -> '2026.2'"
}

call_has_start() {
    local start
    start=$(sqlite3 -batch "$live/PhoneBook/calls.data" "SELECT started FROM calls WHERE id = $1")
    echo "start: $start"
    [ "$start" = '1970-01-01 00:00:00' ]
}
