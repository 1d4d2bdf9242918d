# Comparing a repository with the live data of the modules, without any help of the service. Sourced; expects
# the variables `root`, `live` (parent of the modules' data), `repository` and `scratch` (an empty directory).

checks=0
failures=0
verbose=true
declare -A accounted=() lines_seen=()

# pad TEXT WIDTH : as characters, which printf does not count.
pad() {
    local missing=$(($2 - ${#1}))
    printf '%s%*s' "$1" $((missing > 0 ? missing : 0)) ''
}

# check WHAT DETAIL COMMAND... : one check, shown when it fails or everything is to be shown.
check() {
    local what=$1 detail=$2 output
    shift 2
    checks=$((checks + 1))
    if output=$("$@" 2>&1); then
        if $verbose; then
            printf '   ok   %s  %s\n' "$(pad "$what" 46)" "$detail"
        fi
        return 0
    fi
    failures=$((failures + 1))
    printf '   BAD  %s  %s\n' "$(pad "$what" 46)" "$detail"
    printf '%s\n' "$output" | head -n 5 | sed 's/^/        /'
    return 0
}

# The digest that a module's checksum file gives for a key of that kind.
digest_of_key() {
    KEY=$2 KIND=$3 awk -F '\t' '$1 == ENVIRON["KEY"] && $3 == ENVIRON["KIND"] { print $2 }' \
        "$repository/$1.cksum"
}

md5_of() {
    md5sum <"$1" | cut -d ' ' -f 1
}

same_digest() {
    if [ "$1" != "$2" ] || [ ${#1} -ne 32 ]; then
        echo "digests differ: '$1' and '$2'"
        return 1
    fi
}

note_entry() {
    accounted[$2]=1
    lines_seen[$1]=$((${lines_seen[$1]:-0} + 1))
}

equals_live_file() {
    local module=$1 key=$2 entry=$3
    cmp -- "$live/$module/$key" "$repository/$entry" &&
        same_digest "$(digest_of_key "$module" "$key" file)" "$(md5_of "$live/$module/$key")"
}

# plain_file MODULE KEY [PREFIX]
plain_file() {
    local entry=${3:-}${2//\//++}
    note_entry "$1" "$entry"
    check "$entry" "$1: same bytes, same digest" equals_live_file "$1" "$2" "$entry"
}

unzipped_directory() {
    local module=$1 directory=$2 path
    while IFS= read -r -d '' path; do
        plain_file "$module" "$directory/${path##*/}"
    done < <(find "$live/$module/$directory" -maxdepth 1 -type f ! -name '.*' -print0 | sort -z)
}

# Everything in a database that a copy must have too.
describe_database() {
    local database=$1 table columns
    sqlite3 -batch "$database" 'PRAGMA user_version' 'PRAGMA application_id' '.mode quote' \
        'SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY 1, 2, 3'
    while IFS= read -r table; do
        columns=$(sqlite3 -batch "$database" "SELECT count(*) FROM pragma_table_info('$table')")
        echo "rows of $table:"
        sqlite3 -batch "$database" '.mode quote' \
            "SELECT * FROM \"$table\" ORDER BY $(seq -s , "$columns")"
    done < <(sqlite3 -batch "$database" "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY 1")
}

load_dump() {
    rm -f "$scratch/loaded.data"
    if [ -n "${2:-}" ]; then
        sqlite3 -batch "$2" .schema | sqlite3 -batch -bail "$scratch/loaded.data" || return 1
    fi
    gzip -dc "$repository/$1" >"$scratch/dump.sql" &&
        sqlite3 -batch -bail "$scratch/loaded.data" <"$scratch/dump.sql"
}

equals_live_database() {
    local module=$1 name=$2 database=$live/$1/$2.data
    load_dump "$module++$name.dump.gz" || return 1
    describe_database "$database" >"$scratch/live.txt" || return 1
    describe_database "$scratch/loaded.data" >"$scratch/loaded.txt" || return 1
    diff "$scratch/live.txt" "$scratch/loaded.txt" &&
        same_digest "$(digest_of_key "$module" "$module/$name.data" database)" "$(md5_of "$database")"
}

count_rows() {
    local table total=0
    while IFS= read -r table; do
        total=$((total + $(sqlite3 -batch "$1" "SELECT count(*) FROM \"$table\"")))
    done < <(sqlite3 -batch "$1" "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY 1")
    echo "$total"
}

whole_database() {
    note_entry "$1" "$1++$2.dump.gz"
    check "$1++$2.dump.gz" "loaded: all $(count_rows "$live/$1/$2.data") rows and the schema as live" \
        equals_live_database "$1" "$2"
}

# The module goes on writing, so the dump must be an earlier state of the live database, but not one from before
# the save.
is_recent_state() {
    local module=$1 name=$2 table=$3 least=$4 strange count gaps
    load_dump "$module++$name.dump.gz" || return 1
    count=$(sqlite3 -batch "$scratch/loaded.data" "SELECT count(*) FROM $table")
    gaps=$(sqlite3 -batch "$scratch/loaded.data" "SELECT max(id) - count(*) FROM $table")
    strange=$(sqlite3 -batch "$scratch/loaded.data" "ATTACH '$live/$module/$name.data' AS live" \
        "SELECT count(*) FROM (SELECT * FROM main.$table EXCEPT SELECT * FROM live.$table)")
    echo "$count rows saved, $strange not in the live database, $gaps missing in between, $least before the save"
    [ "$count" -ge "$least" ] && [ "$strange" -eq 0 ] && [ "$gaps" -eq 0 ]
}

# written_database MODULE NAME TABLE ROWS_BEFORE
written_database() {
    note_entry "$1" "$1++$2.dump.gz"
    check "$1++$2.dump.gz" "loaded: rows 1 to n of the live table, n >= $4" is_recent_state "$@"
}

# partial_equals MODULE NAME [TABLE SELECT]... : each table of the dump holds what SELECT yields live.
partial_equals() {
    local module=$1 name=$2 database=$live/$1/$2.data saved=0
    shift 2
    load_dump "$module++$name.dump.gz" "$database" || return 1
    while [ $# -ge 2 ]; do
        sqlite3 -batch "$database" '.mode quote' "$2" | sort >"$scratch/live.txt"
        sqlite3 -batch "$scratch/loaded.data" '.mode quote' "SELECT * FROM $1" | sort >"$scratch/loaded.txt"
        saved=$((saved + $(sqlite3 -batch "$scratch/loaded.data" "SELECT count(*) FROM $1")))
        [ -s "$scratch/loaded.txt" ] && diff "$scratch/live.txt" "$scratch/loaded.txt" || return 1
        shift 2
    done
    if [ "$saved" -ne "$(count_rows "$scratch/loaded.data")" ]; then
        echo "the dump fills tables that are not to be saved"
        return 1
    fi
    same_digest "$(digest_of_key "$module" "$module/$name.data" database)" "$(md5_of "$database")"
}

partial_database() {
    note_entry "$1" "$1++$2.dump.gz"
    check "$1++$2.dump.gz" "loaded: the selected rows of $((($# - 2) / 2)) table(s), none of another" \
        partial_equals "$@"
}

archive_equals() {
    local module=$1 directory=$2 entry=$3
    rm -rf "$scratch/unpacked" "$scratch/archive.tar"
    mkdir "$scratch/unpacked"
    gzip -dc "$repository/$entry" >"$scratch/archive.tar" || return 1
    tar -xf "$scratch/archive.tar" -C "$scratch/unpacked" || return 1
    diff -r "$live/$module/$directory" "$scratch/unpacked$live/$module/$directory" || return 1
    diff <(cd "$live" && find "$module/$directory" | sort) \
        <(cd "$scratch/unpacked$live" && find . -path "./$module/*" | sed 's#^\./##' |
            grep -F "$module/$directory" | sort) || return 1
    same_digest "$(digest_of_key "$module" "$module/$directory.tar" directory)" \
        "$(md5_of "$scratch/archive.tar")"
}

archive() {
    local entry="$1++${2//\//++}.tar.gz"
    note_entry "$1" "$entry"
    check "$entry" "unpacked: the same $(find "$live/$1/$2" -type f | wc -l) files as live" \
        archive_equals "$1" "$2" "$entry"
}

version_equals() {
    [ "$(cat "$repository/$1.version")" = "$2" ]
}

checksum_file_complete() {
    [ "$(wc -l <"$repository/$1.cksum")" -eq "${lines_seen[$1]:-0}" ]
}

# Of each plain file and database; what a running module writes has its time from another moment.
attributes_as_live() {
    local key mode owner group time path
    while IFS=$'\t' read -r key mode owner group time; do
        path=$live/$key
        [ -f "$path" ] || path=$live/$1/$key
        [ "$(stat -c '%04a %U %G' "$path")" = "$mode $owner $group" ] || echo "$key: $mode $owner $group"
        [ "$(stat -c %.9Y "$path" | tr -d .)" = "$time" ] || [ "$key" = Recorder/samples.data ] || echo "$key: $time"
    done <"$repository/$1.attributes" >"$scratch/wrong.txt"
    cut -f 1 "$repository/$1.attributes" | diff - <(awk -F '\t' '$3 != "directory" { print $1 }' \
        "$repository/$1.cksum" | LC_ALL=C sort) >>"$scratch/wrong.txt"
    cat "$scratch/wrong.txt"
    [ ! -s "$scratch/wrong.txt" ]
}

# module_files MODULE RELEASE::VERSION : after all items of the module were looked at.
module_files() {
    accounted[$1.version]=1 accounted[$1.cksum]=1 accounted[$1.attributes]=1
    check "$1.version" "$2" version_equals "$1" "$2"
    check "$1.cksum" "a line for each of ${lines_seen[$1]:-0} items and no other" checksum_file_complete "$1"
    check "$1.attributes" "of its files and databases as live" attributes_as_live "$1"
}

migration_program() {
    accounted[$1Migration]=1
    check "$1Migration" "the installed program" \
        cmp "$root/usr/lib/VYXApplication/migration/$1Migration" "$repository/$1Migration"
}

modules_list_is() {
    diff <(printf '%s\n' "$@" | sort) <(sort "$repository/modules-list.sav")
}

nothing_else() {
    local path strange=0
    while IFS= read -r -d '' path; do
        if [ -z "${accounted[${path##*/}]:-}" ]; then
            echo "unknown entry: ${path##*/}"
            strange=1
        fi
    done < <(find "$repository" -mindepth 1 -print0)
    return "$strange"
}
