#!/usr/bin/env bash
# Holds docs/operations.md against the service: each text that is logged as an error or a warning or shown, each method,
# event and setting has its place there, as each method, property and key of the control interface has in
# docs/control.md; and each example call of both works on a stand-in device.
set -uo pipefail
shopt -s lastpipe
cd "$1" || exit 1
programs=$2 guide=docs/operations.md failures=0

fail() {
    echo "operations: FAILED: $1" >&2
    failures=$((failures + 1))
}

# All sources of the service, each as one line without comments, literals that follow each other joined.
sources() {
    find . -regex '\./\(device\|examples\|saverestorectl\|tests\|build\|packaging\|bench\)' -prune -o -name '*.cpp' -print -o -name '*.h' -print |
        while IFS= read -r file; do
            sed -E 's#^[[:space:]]*//.*##' "$file" | tr '\n' ' ' | sed -E 's/" +"//g; s/$/\n/'
        done
}

# What is written or shown, as opposed to SQL, printed listings and parts of other texts.
messages() {
    local call='(log(Warning|Error)|(show|report)Failure|report|refuse|fail|createWorkingDirectory)\('
    grep -oE "($call|\b(failure|text|errorText) = |return (QString\()?\"[A-Z])[^;]*;" | grep -oE '"([^"\\]|\\.)*"' |
        tr -d '"' | grep -E '[^ ] [^ ]' | grep '[a-z]' | grep -vE '\\n|^Reset to '
}

# expect KIND LEAST PREFIX SUFFIX : each different line of standard input, between the two, is in the guide.
expect() {
    local count=0 line
    sort -u | while IFS= read -r line; do
        count=$((count + 1))
        grep -qF -- "$3$line$4" "$guide" || fail "$guide has no $1: $line"
    done
    [ "$count" -ge "$2" ] || fail "only $count found of: $1"
}

interface=$(sed -nE 's/^ *"(.*)\\n"$/\1/p' dbus/VYXSaveRestoreAdaptor.h | sed 's/\\"/"/g')
sources | messages | expect "log line or pop-up" 100 '' ''
sources | grep -oE '(subscribeEvent|notifyEvent|VYXEvent( \w+)?)\( *"\w+"' | cut -d '"' -f 2 |
    expect event 9 '| `' '` |'
sources | grep -oE 'readSetting\("\w+"' | cut -d '"' -f 2 | expect setting 4 '| `' '` |'
awk -F '"' '/<method/ { name = $2; list = "" } /<arg name/ { list = list (list == "" ? "" : ", ") $2 }
    /<\/method|<method.*\/>/ { print name "(" list ")" }' <<<"$interface" | expect method 24 '| `' '` |'
grep -oE '<method name="\w+' <<<"$interface" | cut -d '"' -f 2 | expect "example of" 21 'vyx VYXSaveRestore ' ''

guide=docs/control.md
control=$(<dbus/com.corvane.Pelorin.SaveRestoreControl1.xml)
grep -oP '<(method|signal) name="\K\w+' <<<"$control" | expect "control method or signal" 7 '`' ''
grep -oP '<property name="\K\w+" type="[a-z{}]+' <<<"$control" | sed 's/" type="/ /' |
    while read -r name type; do
        grep -qE "^\|.*\`$name\`.*\| $type \|" "$guide" || fail "$guide has no property $name of type $type"
    done
sed -nE 's/^    (\w+) +[a-z(){}]+( .*)?$/\1/p' <<<"${control%%<node>*}" | expect "key of a summary" 18 '`' '`'
grep -oP '"\K\w+(?=" \()' <<<"$control" | expect option 9 '`' '`'

root=$(mktemp -d /tmp/saverestore-guide.XXXXXX) || exit 1
. scripts/lib/device.sh
trap 'stop_device; rm -rf "$root"' EXIT
trap 'exit 143' TERM INT HUP
mkdir "$root/log" && device/make-device "$root" "$programs" && start_bus && start_module ApplicationManager &&
    wait_until 20 owns_name Tuner && start_module SettingsManager && start_module Scheduler &&
    start_module VYXSaveRestore || { fail "the device does not start: $(tail -qn 2 "$root"/log/*)" && exit 1; }

is_idle() {
    [[ $(call VYXSaveRestore getCapability s SAVE_RESTORE_ENABLE 2>&1) == *[01] ]]
}

# run_examples GUIDE LEAST : each example as it stands in the guide; what follows "#" is its answer. What stops all modules
# comes last.
run_examples() {
    local definitions example answer examples
    definitions=$(awk '/^```sh/ { inside = 1; next } /^```/ && inside { exit } inside' "$1")
    awk '/^```/ { inside = /^```sh/; next } inside && /^(vyx [A-Z]|control |show )/ { print /resetToFactory/ ? 2 : 1, $0 }' "$1" |
        sort -s -n -k 1,1 | cut -d ' ' -f 2- | mapfile -t examples
    [ ${#examples[@]} -ge "$2" ] || fail "$1 has too few examples"
    for example in "${examples[@]}"; do
        wait_until 30 is_idle || { fail "the service does not become idle before: $example" && exit 1; }
        answer=$(timeout 180 bash -o pipefail -c "$definitions
            repository=$root/media/repository
            $example" 2>&1) && [[ $example != *' # '* || $answer == "${example#* # }" ]] || fail "$example: $answer"
    done
    ran=$((ran + ${#examples[@]}))
}

ran=0
run_examples docs/control.md 11
run_examples docs/operations.md 40
[ "$failures" -eq 0 ] && echo "operations: all $ran examples and every entry passed"
