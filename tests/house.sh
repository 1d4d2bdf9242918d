#!/usr/bin/env bash
# Holds the sources against the house they stand in: who may include and link whom, and how large a thing may become.
set -uo pipefail
shopt -s lastpipe
cd "$1" && export LC_ALL=C && exec </dev/null || exit 1

# Folders, and what lies right below each: a folder includes itself, these, and whatever lies below them.
house='service: dbus save verify reset
verify: restore
save restore: staging
reset saverestorectl: restorable
staging: pause repository restorable outcome
pause repository restorable: catalogue commands
dbus: outcome
catalogue commands outcome device examples: platform'

# Each pair of the relation on standard input, and each that follows from several.
closure() {
    awk '{ node[$1]; node[$2]; way[$1 " " $2] } END { for (pair in way) print pair
        for (k in node) for (i in node) for (j in node) if (i " " k in way && k " " j in way) { way[i " " j]; print i, j } }'
}

# What is called so below the folders of the project that belong to the house.
found() { find . \( -path './.?*' -o -path ./build -o -path ./tests -o -path ./fuzz -o -path ./bench \) -prune -o -name "$1" -print | cut -c 3-; }

# Each include of a file of the project, as "file included".
includes() {
    awk -v folders="$(tr '\n:' ' ' <<<"$house") tests" 'BEGIN { split(folders, list, " "); for (i in list) own[list[i]] }
        /^[ \t]*#[ \t]*include/ {
            name = $0; sub(/^[^"<]*["<]/, "", name); sub(/[">].*/, "", name); split(name, part, "/")
            if ($0 ~ /"/ || part[1] in own) print FILENAME, name }' "${sources[@]}"
}

# Each link between targets of the project, as "folder/target folder/target".
links() {
    found CMakeLists.txt | while IFS= read -r file; do
        sed 's/#.*//' "$file" | tr '\n' ' ' | grep -oiE '(add_(library|executable)|target_link_libraries) *\([^)]*\)' |
            sed "s#^#${file%%/*} #; s/[()]/ /g"
    done | awk 'tolower($2) ~ /^add/ { home[$3] = $1 "/" $3; next } { for (i = 4; i <= NF; ++i) link[$3 " " $i] }
        END { for (pair in link) { split(pair, t, " "); if (t[1] in home && t[2] in home) print home[t[1]], home[t[2]] } }'
}

# Of such pairs the folders, without what stays in one.
folders() { sed -E 's#/[^ ]*##g' | awk '$1 != $2' | sort -u; }

# hold VERB PAIR... : what leads anywhere but to the same folder or below, and the members of circles.
hold() {
    printf '%s\n' "${@:2}" | awk -v verb="$1" 'NR == FNR { may[$0]; next } { split($1, from, "/"); split($2, to, "/") }
        from[1] != to[1] && !(from[1] " " to[1] in may) { print $1, verb, $2 ", which is not below it" }' \
        <(awk -F: '{ n = split($1, a, " "); for (m = split($2, b, " "); m; --m) for (i = n; i; --i) print a[i], b[m] }' \
            <<<"$house" | closure) -
    { printf '%s\n' "${@:2}" && printf '%s\n' "${@:2}" | folders; } | tsort 2>&1 >/dev/null |
        sed -n "s/^tsort: \([^-].*\)/\1 $1 what leads back to it/p"
}

found '*.[ch]*' | grep -E '\.(c|cpp|h)$' | mapfile -t sources
printf '%s\n' "${sources[@]}" | grep -v '^device/' | mapfile -t held
includes | mapfile -t included
links | mapfile -t linked
functions=$(cat "${held[@]}" | grep -cx '}')
{
    [[ ${#included[@]} -ge 200 && ${#linked[@]} -ge 12 && $functions -ge 200 ]] || echo "too little is found to be judged"
    printf '%s\n' "${sources[@]}" | grep -vE "^($(tr -s '\n: ' '|' <<<"$house"))/" | sed 's/$/ is outside/'
    printf '%s\n' "${included[@]}" | awk 'NR == FNR { known[$0]; next }
        !($2 in known) { print $1, "includes what is no folder/file of the house:", $2 }' <(printf '%s\n' "${sources[@]}") -
    hold includes "${included[@]}"
    hold links "${linked[@]}"
    printf '%s\n' "${included[@]}" | folders | grep -vxFf <(printf '%s\n' "${linked[@]}" | folders | closure) |
        sed 's/ / includes, but does not link: /'
    awk 'FNR == 1 { open = 0 } FNR == 351 { print FILENAME, "has more than 350 lines" } !open && /^[A-Za-z]/ { head = FNR }
        $0 == "}" && open && FNR - head >= 45 { print FILENAME ":" head, "is a function of", FNR - head + 1, "lines" }
        /^\{$/ { open = FNR } /^\}/ { open = 0 }' "${held[@]}"
    sed -n '/^class VYXSaveRestore/,/^};/p' service/VYXSaveRestore.h | sed '1,2d; $d; s#//.*##' | tr '\n' ' ' | awk '{
        while (gsub(/\([^()]*\)/, "@")); while (gsub(/<[^<>]*>/, "")); while (gsub(/\{[^{}]*\}/, ";"));
        for (i = split($0, part, ";"); i > 0; --i) { sub(/.*(public|protected|private)[A-Za-z_ ]*:/, "", part[i])
            sub(/=.*/, "", part[i])
            if (part[i] ~ /[A-Za-z]/ && part[i] !~ /@|(using|typedef|friend) /) fields += split(part[i], names, ",") } }
        END { if (fields < 1 || fields > 10) print "VYXSaveRestore has", fields + 0, "fields" }'
} | sed 's/^/house: /' | mapfile -t findings
[ "${#findings[@]}" -eq 0 ] || { printf '%s\n' "${findings[@]}" "house: FAILED: ${#findings[@]} findings" && exit 1; }
echo "house: passed: ${#included[@]} includes, ${#linked[@]} links and $functions functions are in place"
