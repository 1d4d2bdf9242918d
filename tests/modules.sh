#!/usr/bin/env bash
# Holds docs/modules.md against the tree: each piece of code stands in the file that is named above it, each command works,
# and what the guide says to be refused by the schema is. Each restorable.xml of the tree is one by the schema.
set -uo pipefail
shopt -s lastpipe
cd "$1" || exit 1
programs=$2 guide=docs/modules.md failures=0 pieces=0
scratch=$(mktemp -d /tmp/saverestore-modules.XXXXXX) || exit 1
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "modules: FAILED: $1" >&2
    failures=$((failures + 1))
}

valid() { xmllint --noout --nonet --schema docs/restorable.xsd "$1" >"$scratch/errors" 2>&1; }

# Each piece of code goes into a file of its own, whose first line names the file that it is of; what has no such name
# is commands.
awk -v to="$scratch" '/^<!-- .* -->$/ { name = $2; next }
    /^```/ && inside { inside = 0; close(file); next }
    /^```/ { inside = 1; ++number; file = to "/" number (name == "" ? ".commands" : ".code")
        if (name != "") print name >file; name = ""; next }
    inside { print >file }' "$guide"

for piece in "$scratch"/*.code; do
    pieces=$((pieces + 1)) file=$(head -n 1 "$piece")
    TEXT=$(tail -n +2 "$piece") awk 'BEGIN { RS = "\001" } index($0, ENVIRON["TEXT"] "\n") { found = 1 } END { exit !found }' \
        "$file" || fail "$file does not have: $(sed -n 2,4p "$piece")"
done

cat "$scratch"/*.commands | while IFS= read -r command; do
    pieces=$((pieces + 1)) ran=${command//build\/dev\/bin/$programs}
    # Without libsystemd there is no module in C.
    [[ $ran != *"$programs/Hygrometer"* || -x $programs/Hygrometer ]] || continue
    timeout 120 bash -c "${ran/try-module /try-module --programs $programs }" >"$scratch/output" 2>&1 ||
        fail "$command: $(grep -E -A 5 'BAD|FAILED' "$scratch/output")"
done
[ "$pieces" -ge 16 ] || fail "the guide has only $pieces pieces of code and commands"

for file in {device/modules,examples}/*/restorable.xml; do
    valid "$file" || fail "$(cat "$scratch/errors")"
done
awk '/^```xml/ { inside = 1; next } /^```/ { inside = 0 } inside' README.md >"$scratch/readme.xml"
valid "$scratch/readme.xml" || fail "README.md: $(cat "$scratch/errors")"

refused=0
sed -nE 's/^\| `(<(files|databases|reset-to-[a-z]+)>.*<\/(files|databases|reset-to-[a-z]+)>)` \|.*/\1/p' "$guide" | while IFS= read -r content; do
    refused=$((refused + 1))
    echo "<restorable>$content</restorable>" >"$scratch/restorable.xml"
    xmllint --noout "$scratch/restorable.xml" || fail "this is no XML: $content"
    ! valid "$scratch/restorable.xml" || fail "the schema takes $content"
done
[ "$refused" -ge 16 ] || fail "the guide has only $refused descriptions that are refused"

# What a module does wrong is found.
if device/try-module --programs "$programs" --patience 2 Bad examples/thermometer/restorable.xml \
    "$programs/SampleModule Bad --ignore-pause" >"$scratch/output" 2>&1 ||
    ! grep -q 'BAD  it is ready, and its data are there' "$scratch/output" ||
    ! grep -q 'Bad has not published stop_save_restore_OK within 2 s' "$scratch/output"; then
    fail "a module without data that does not pause passes: $(cat "$scratch/output")"
fi
[ "$failures" -eq 0 ] && echo "modules: all $pieces pieces of code and commands and $refused refused descriptions passed"
