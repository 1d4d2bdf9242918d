# Comparing the live data of the modules with what was saved, without any help of the service. Sourced after the
# other checks; expects also `damaged`, a directory with copies of live data as they were before the restore.

# Each live file with its number and its time: a line differs exactly when the file was written or replaced.
list_times() {
    (cd "$live" && find "./${1:-}" -type f ! -path '*/VYXSaveRestore/*' -printf '%p\t%i %T@\n' 2>/dev/null | sed 's#^\./*#./#' | sort)
}

list_owners() {
    (cd "$live" && find . ! -path './Recorder/samples.data-*' -printf '%p\t%y %u %g %m\n' | sort)
}

# What the restore did to a file or directory: seen in the files themselves, not in the service's log.
fate() {
    if [ -e "$live/$1" ] && [ -z "$(comm -13 "$root/log/times" <(list_times "$1"))" ]; then
        echo "left alone"
    else
        echo "restored"
    fi
}

# SQLite makes an empty database of a missing one, which would hide that it is missing.
is_there() {
    [ -s "$1" ] || {
        echo "missing or empty: $1"
        return 1
    }
}

# restored_file MODULE KEY [PREFIX]
restored_file() {
    local entry=${3:-}${2//\//++}
    check "$1/$2" "$(fate "$1/$2"): same bytes, same digest" equals_live_file "$1" "$2" "$entry"
}

saved_files_below() {
    BELOW=$2/ awk -F '\t' 'index($1, ENVIRON["BELOW"]) == 1 && $3 == "file" { print $1 }' "$repository/$1.cksum"
}

equals_saved_files() {
    local module=$1 directory=$2 key keys
    mapfile -t keys < <(saved_files_below "$module" "$directory")
    [ "${#keys[@]}" -gt 0 ] || return 1
    for key in "${keys[@]}"; do
        equals_live_file "$module" "$key" "${key//\//++}" || return 1
    done
    diff <(printf '%s\n' "${keys[@]#"$directory/"}" | sort) \
        <(find "$live/$module/$directory" -mindepth 1 -printf '%P\n' | sort)
}

# All files of a directory that is saved file by file and held nothing else before the restore.
restored_files() {
    check "$1/$2" "$(fate "$1/$2"): the $(saved_files_below "$1" "$2" | wc -l) saved files, same bytes, same digests" \
        equals_saved_files "$1" "$2"
}

# The restored file is another file than the saved one, so it may lay out the same content differently.
equals_saved_database() {
    local database=$live/$1/$2.data
    is_there "$database" && load_dump "$1++$2.dump.gz" || return 1
    describe_database "$database" >"$scratch/live.txt" || return 1
    describe_database "$scratch/loaded.data" >"$scratch/loaded.txt" || return 1
    diff "$scratch/loaded.txt" "$scratch/live.txt"
}

restored_database() {
    load_dump "$1++$2.dump.gz"
    check "$1/$2.data" "$(fate "$1/$2.data"): all $(count_rows "$scratch/loaded.data") rows and the schema as saved" \
        equals_saved_database "$1" "$2"
}

# All rows of TABLE of the attached database: those that are not saved, when KEY is given.
print_unsaved() {
    local database=$1 table=$2 key=${3:-} condition=
    if [ -n "$key" ]; then
        condition="WHERE $key NOT IN (SELECT $key FROM main.$table)"
    fi
    sqlite3 -batch "$scratch/loaded.data" "ATTACH '$database' AS other" '.mode quote' \
        "SELECT * FROM other.$table $condition ORDER BY 1"
}

# is_merged MODULE NAME UNSAVED [TABLE KEY]... : the saved rows of each TABLE are there again, and its other rows
# and the table UNSAVED are as they were before the restore.
is_merged() {
    local module=$1 name=$2 unsaved=$3 database=$live/$1/$2.data old=$damaged/$2.data missing
    is_there "$database" && is_there "$old" && load_dump "$module++$name.dump.gz" "$database" || return 1
    shift 3
    diff <(print_unsaved "$old" "$unsaved") <(print_unsaved "$database" "$unsaved") || return 1
    while [ $# -ge 2 ]; do
        missing=$(sqlite3 -batch "$scratch/loaded.data" "ATTACH '$database' AS live" "SELECT count(*) FROM main.$1" \
            "SELECT count(*) FROM (SELECT * FROM main.$1 EXCEPT SELECT * FROM live.$1)" | paste -sd ' ')
        if [[ ! $missing =~ ^[1-9][0-9]*\ 0$ ]]; then
            echo "$1: rows saved, and rows that are not there: $missing"
            return 1
        fi
        diff <(print_unsaved "$old" "$1" "$2") <(print_unsaved "$database" "$1" "$2") || return 1
        shift 2
    done
}

merged_database() {
    load_dump "$1++$2.dump.gz" "$live/$1/$2.data"
    check "$1/$2.data" "$(fate "$1/$2.data"): all $(count_rows "$scratch/loaded.data") saved rows, everything else untouched" \
        is_merged "$@"
}

has_more_rows() {
    [ "$(sqlite3 -batch -readonly "$1" "SELECT count(*) FROM $2")" -gt "$3" ]
}

# The module goes on where the dump ended: its rows, then new ones.
is_written_again() {
    local module=$1 name=$2 table=$3 database=$live/$1/$2.data missing saved
    is_there "$database" && load_dump "$module++$name.dump.gz" || return 1
    saved=$(sqlite3 -batch "$scratch/loaded.data" "SELECT count(*) FROM $table")
    missing=$(sqlite3 -batch "$scratch/loaded.data" "ATTACH '$database' AS live" \
        "SELECT count(*) FROM (SELECT * FROM main.$table EXCEPT SELECT * FROM live.$table)")
    echo "$saved rows saved, $missing of them not in the live database"
    [ "$saved" -gt 0 ] && [ "$missing" -eq 0 ] && wait_until 10 has_more_rows "$database" "$table" "$saved"
}

rewritten_database() {
    load_dump "$1++$2.dump.gz"
    check "$1/$2.data" "restored: the $(count_rows "$scratch/loaded.data") saved rows, and the module goes on writing" \
        is_written_again "$@"
}

describe_tree() {
    find "$1" -printf '%P\t%y %m\n' | sort
}

# archive_is_live MODULE DIRECTORY [ADDED] : the live directory holds what the archive holds, and ADDED.
archive_is_live() {
    local module=$1 directory=$2 added=${3:-} unpacked=$scratch/unpacked$live/$1/$2
    rm -rf "$scratch/unpacked"
    mkdir "$scratch/unpacked"
    gzip -dc "$repository/$module++${directory//\//++}.tar.gz" | tar -xp -C "$scratch/unpacked" || return 1
    if [ -n "$added" ]; then
        cp -a "$damaged/$added" "$unpacked/$added" || return 1
    fi
    diff -r "$unpacked" "$live/$module/$directory" &&
        diff <(describe_tree "$unpacked") <(describe_tree "$live/$module/$directory")
}

restored_archive() {
    check "$1/$2" "$(fate "$1/$2"): unpacked the same files${3:+, and the added one stays}" archive_is_live "$@"
}

# log_keys EXPRESSION : the items that the service's log names in lines of that form.
log_keys() {
    service_log | sed -nE "s/^debug [^:]*: $1\$/\1/p"
}

fetched_items() {
    log_keys "New\/updated file '(.*)': download and update"
}

kept_items() {
    log_keys "Same file '(.*)': no need to restore"
}

all_saved_items() {
    cut -f 1 "$repository"/*.cksum
}

# fetched_exactly ITEM... : and each other item was left alone.
fetched_exactly() {
    check "only what differed was fetched" "" equal_sets "$(printf '%s\n' "$@")" "$(fetched_items)"
    check "each other item was found to be the same" "" \
        equal_sets "$(all_saved_items)" "$(fetched_items; kept_items)"
}

# untouched EXPRESSION : files that match are restored; all others that were not damaged are the very same files.
are_untouched() {
    local kept
    kept=$(comm -12 "$root/log/times.saved" "$root/log/times" | grep -vE "$1")
    [ -n "$kept" ] && [ -z "$(comm -23 <(printf '%s\n' "$kept") <(list_times))" ] || {
        comm -23 <(printf '%s\n' "$kept") <(list_times)
        return 1
    }
}

untouched() {
    check "undamaged files keep their time and number" \
        "$(comm -12 "$root/log/times.saved" "$root/log/times" | grep -cvE "$1") files" are_untouched "$1"
}

# owners_are_kept ADDED... : what is new, or has another owner or mode, is what was added.
owners_are_kept() {
    equal_sets "$(printf '%s\n' "$@")" "$(comm -13 "$root/log/owners" <(list_owners) | cut -f 1)"
}

nothing_left_behind() {
    [ -z "$(find "$root/data" -name '.saverestore-*' | tee /dev/stderr)" ]
}

# Whether the service believes the file system of the live data to change its stamps with each content.
remembers_digests() {
    [[ $(stat -f -c %T "$live") =~ ^(ext2/ext3|xfs|btrfs)$ ]]
}

same_processes() {
    all_modules_run && diff <(printf '%s\n' "$modules_before") <(list_modules)
}

logs_no_error() {
    ! service_log | grep -E '^(error|warning)'
}
