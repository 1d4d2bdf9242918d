# The acts of the demo that let time pass and that reset. Sourced after the other libraries.

set_setting() {
    call SettingsManager setSettingValue ss "$1" "$2"
}

# The Scheduler's next time for the service, as seconds since the epoch.
next_save() {
    local next
    next=$(call Scheduler printTasks | sed -nE 's/.*VYXSaveRestore\.startSaveOnRepository, next: ([-0-9T:]+).*/\1/p')
    [ -n "$next" ] && date -d "$next" +%s
}

service_says() {
    service_log | grep -qF "$1"
}

setting_is_refused() {
    local reply
    reply=$(set_setting "$1" "$2")
    echo "$reply"
    [[ $reply == '(bbbisas) false '* ]]
}

runs_scheduled_save() {
    local next
    next=$(next_save) || return 1
    call Scheduler advanceClock i $((next - $(date +%s) + 1)) >/dev/null
    wait_until 120 service_says 'Saving operations done'
}

run_scheduled_save() {
    local again=()
    remembers_digests || again=({Navigator,Tuner}.attributes)
    check "a schedule of 25 o'clock is refused" "by the service, through the SettingsManager" \
        setting_is_refused SaveRestoreSchedule 25
    set_setting SaveRestoreSchedule 4 >/dev/null
    set_setting SaveRestoreScheduleType 2 >/dev/null
    call VYXSaveRestore printSettings | sed 's/^s "//; s/\\n"$//; s/\\n/\n/g' | sed 's/^/      /'
    printf '\n   The Scheduler calls it next at %s.\n' "$(date -d "@$(next_save)" '+%F %T')"
    sqlite3 -batch "$live/PhoneBook/contacts.data" "UPDATE contact SET note = 'called' WHERE id = 2"
    rm -f "$live/VYXSaveRestore/digests"
    note_state_before
    check "the save starts when its time comes" "the Scheduler's clock is put ahead" runs_scheduled_save
    snapshot >"$root/log/after"
    echo "   What a restore has put back is another file than the saved one. It was no longer remembered, so it is sent again."
    sent_exactly "PhoneBook Navigator Guide Tuner" PhoneBook.version PhoneBook++{contacts,calls}.dump.gz PhoneBookMigration Navigator++{places.dump,routes.tar}.gz \
        Guide++programmes.dump.gz Tuner++stations.dump.gz {PhoneBook,Guide}.attributes "${again[@]}"
    check "all modules run again" "" all_modules_run
    verbose=false
    verify_repository
    verbose=true
}

# sql_gives MODULE DATABASE QUERY RESULT
sql_gives() {
    local result
    result=$(sqlite3 -batch -cmd '.timeout 5000' "$live/$1/$2.data" "$3" 2>&1)
    echo "$3: $result instead of $4"
    [ "$result" = "$4" ]
}

# database MODULE DATABASE WHAT QUERY RESULT
database() {
    check "$1/$2.data" "$3" sql_gives "$1" "$2" "$4" "$5"
}

# file_holds MODULE FILE TEXT : as its recipe has it.
file_holds() {
    check "$1/$2" "as it left the factory" cmp -- <(printf '%b' "$3") "$live/$1/$2"
}

verify_default() {
    database PhoneBook calls 'missed calls are gone' "SELECT count(*) FROM calls WHERE direction = 'missed'" 0
    database PhoneBook calls 'no speed dial' 'SELECT count(*) FROM favourites WHERE speed_dial NOT NULL' 0
    database Navigator places 'recent destinations are gone' 'SELECT count(*) FROM recent' 0
    database Guide programmes 'reminders: five minutes' 'SELECT DISTINCT minutes_before FROM reminder' 5
    database Recorder samples 'the first hundred samples are gone' 'SELECT count(*) FROM samples WHERE id < 100' 0
    database Radio stations 'no favourites' 'SELECT count(*) FROM station WHERE favourite <> 0' 0
    database Tuner stations 'no favourites' 'SELECT count(*) FROM station WHERE favourite <> 0' 0
    file_holds Radio presets.conf '1=88.4\n2=92.4\n3=104.0\n'
    file_holds PhoneBook ringtones.conf 'default=chimes\nfamily=marimba\nvolume=7\n'
}

kept_by_default() {
    database PhoneBook contacts 'contacts stay' "SELECT note FROM contact WHERE id = 2" called
    database Navigator places 'destinations stay' 'SELECT count(*) FROM destination' 5
    check "Gallery/My Pictures" "the added picture stays" test -e "$live/Gallery/My Pictures/new [2] \"friends\".jpg"
}

verify_factory() {
    local table
    for table in PhoneBook/contacts/contact PhoneBook/contacts/picture PhoneBook/calls/calls \
        PhoneBook/calls/favourites Navigator/places/destination Navigator/places/recent Guide/programmes/reminder \
        Radio/stations/station Tuner/stations/station; do
        IFS=/ read -r module database table <<<"$table"
        database "$module" "$database" "no $table" "SELECT count(*) FROM $table" 0
    done
    database Recorder samples 'only what was measured since' 'SELECT count(*) < 100 FROM samples' 1
    check "Gallery/My Pictures" "the added picture is gone" \
        test ! -e "$live/Gallery/My Pictures/new [2] \"friends\".jpg"
    check "Gallery/My Pictures/-rf.jpg" "as it left the factory" test -e "$live/Gallery/My Pictures/-rf.jpg"
    file_holds Gallery gallery.ini 'sort=date\nslideshow=5\n'
}

# A check that cannot fail shows nothing: all of these must fail before the reset.
expect_user_data() {
    local found
    found=$(
        failures=0 checks=0 verbose=false
        "$1" >/dev/null
        echo "$((checks - failures))"
    )
    check "before the reset none of the checks below holds" "" test "$found" -eq 0
}

start_listening() {
    start_program events busctl "--address=$DBUS_SYSTEM_BUS_ADDRESS" --json=short monitor \
        "--match=type='signal',interface='com.corvane.Pelorin.VYXEvent'"
    wait_until 10 grep -qs 'Monitoring bus message stream' "$root/log/events.log"
}

# The events heard: their names, and the modules of the reports.
heard_events() {
    grep -o '"member":"[^"]*"\|"ModuleName":{[^}]*}' "$root/log/events.log" |
        sed -E 's/"member":"(.*)"/\1/; s/.*"data":"([^"]*)".*/ \1/' | awk '
            /^ / { line = line $0; next }
            line != "" { print line }
            { line = $0 }
            END { print line }'
}

heard() {
    heard_events | grep -qxF "$1"
}

every_module_reported() {
    local module
    while read -r module _; do
        heard "$1 $module" || {
            echo "$module has not reported"
            return 1
        }
    done < <(list_modules)
    heard "$1 VYXSaveRestore"
}

# run_reset METHOD EXPECTED-REPLY
run_reset() {
    note_state_before
    start_listening || die "the bus cannot be listened to"
    timed_call "$1"
    echo "   The reset took $call_time s."
    check "the call's answer" "${2:-none}" test "$reply" = "$2"
}

end_reset() {
    stop_process events
    check "the repository" "not touched" diff "$root/log/before" <(snapshot)
}

reset_to_default() {
    echo "   Each module's commands run on its databases, and the modules reset their settings themselves."
    echo 'volume=11' >"$live/PhoneBook/ringtones.conf"
    expect_user_data verify_default
    run_reset resetToDefault "b true"
    verify_default
    kept_by_default
    check "every module has reported, the Tuner asks for a reboot" "" every_module_reported reset_default_done
    check "the end is announced" "" heard reset_data_default_complete
    check "all modules run" "" all_modules_run
    end_reset
}

no_module_runs() {
    ! list_modules | grep -qv $'\t0$'
}

reset_to_factory() {
    echo "   The same with the commands for the factory state; the modules remove what was added, and are stopped."
    echo 'sort=name' >"$live/Gallery/gallery.ini"
    sqlite3 -batch "$live/Navigator/places.data" "INSERT INTO recent VALUES (1, '2026-03-08 09:00')"
    expect_user_data verify_factory
    run_reset resetToFactory ""
    check "all modules are stopped" "" wait_until 10 no_module_runs
    verify_factory
    check "every module has reported" "" every_module_reported reset_factory_done
    end_reset
}

start_modules_again() {
    local module
    while read -r module _; do
        call ApplicationManager startModule s "$module" >/dev/null
    done < <(list_modules)
}
