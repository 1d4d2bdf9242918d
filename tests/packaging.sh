#!/usr/bin/env bash
# Packs the service of a finished build, installs the package into a root of its own, runs a save there on a bus that
# denies by default with the policy of the package, and removes the package again.
set -uo pipefail
export LC_ALL=C.UTF-8 PATH=$PATH:/usr/sbin:/sbin
umask 022
sources=${1:?usage: packaging.sh SOURCES BUILD} programs=${2:?usage: packaging.sh SOURCES BUILD}/bin
work=$(mktemp -d /tmp/saverestore-packaging.XXXXXX) || exit 1
root=$work/root unit=vyxsaverestore.service
. "$sources/scripts/lib/device.sh"
trap 'stop_device; rm -rf "$work"' EXIT
trap 'exit 143' INT TERM HUP

fail() {
    echo "packaging: FAILED: $1" && tail -n 12 "$work/output" "$root"/log/{bus,VYXSaveRestore}.log 2>/dev/null
    exit 1
}

# run WHAT COMMAND... : ends the test with WHAT when the command fails.
run() {
    "${@:2}" </dev/null >"$work/output" 2>&1 || fail "$1"
}

# quiet WHAT COMMAND... : also when it says anything.
quiet() {
    run "$@"
    [ ! -s "$work/output" ] || fail "$1"
}

# The root belongs to whoever runs this; dpkg wants to give files to root.
dpkg_in_root() {
    local administrator=()
    [ "$(id -u)" -eq 0 ] || administrator=(fakeroot)
    "${administrator[@]}" dpkg --root="$root" --log="$work/dpkg.log" --path-include='/usr/share/*' \
        --force-not-root --force-depends --force-script-chrootless "$@"
}

# use_policy USER GROUP : the installed policy with these for root and vyxapplication.
use_policy() {
    sed "s/user=\"root\"/user=\"$1\"/; s/group=\"vyxapplication\"/group=\"$2\"/" \
        "$root/usr/share/dbus-1/system.d/com.corvane.Pelorin.VYXSaveRestore.conf" >"$work/policy.conf"
    [ -z "${process[bus]:-}" ] || reload_policy
}

reload_policy() {
    run "the bus refuses the policy" busctl \
        "--address=$DBUS_SYSTEM_BUS_ADDRESS" --timeout=5 call org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus ReloadConfig
}

# control VERB ARGUMENT... : as somebody with busctl uses the control interface.
control() {
    busctl "--address=$DBUS_SYSTEM_BUS_ADDRESS" --timeout=60 "$1" "$bus_prefix.VYXSaveRestore" \
        /com/corvane/Pelorin/VYXSaveRestore "$bus_prefix.SaveRestoreControl1" "${@:2}"
}

broadcast() {
    busctl "--address=$DBUS_SYSTEM_BUS_ADDRESS" --timeout=5 emit /com/corvane/Pelorin/Forger \
        "$bus_prefix.VYXEvent" stop_save_restore_OK 'a{sv}s' 1 ModuleName s "$1" ""
}

run "the package cannot be made" cpack --config "$2/CPackConfig.cmake" -B "$work/pack"
package=$(find "$work/pack" -maxdepth 1 -name 'vyxsaverestore_*.deb')
field() { dpkg-deb --field "$package" "$1"; }
run "the package cannot be read" field Package
run "the package cannot be unpacked" dpkg-deb --extract "$package" "$work/unpacked"
program=$work/unpacked/usr/sbin/VYXSaveRestore bill=$work/unpacked/usr/share/doc/vyxsaverestore/vyxsaverestore.spdx.json
# What the control fields and the bill of materials say is held against the programs.
declare -A machine=([amd64]="Advanced Micro Devices X86-64" [arm64]=AArch64 [armhf]=ARM)
[[ $(readelf -h "$program") =~ Machine:\ *"${machine[$(field Architecture)]}" ]] ||
    fail "the program is of another architecture than $(field Architecture)"
[ "VYXSaveRestore $(field Version)" = "$("$program" --version)" ] || fail "the program is of another version"
[ -e "$sources/packaging/yocto/vyxsaverestore_$(field Version).bb" ] || fail "the recipe is of another version"
[[ $(field Maintainer) =~ ^[^\<\>@]+\ \<[^@]+@[^@]+\>$ ]] || fail "the maintainer cannot be written to"
[ "$(field Installed-Size)" -ge "$(($(stat -c %s "$program") / 1024))" ] || fail "the package is larger than it says"
depends=", $(field Depends),"
needed="$(readelf -d "$program" "$work/unpacked/usr/bin/saverestorectl" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort -u) libcurl.so.4" # which is loaded when a server is the repository
# Sanitizers are on no device.
if [[ $needed != *libasan* ]]; then
    for library in $needed; do
        owner=$(dpkg-query -S "*/$(dpkg-architecture -q DEB_HOST_MULTIARCH)/$library" | sed -n '1s/:.*//p')
        [[ $depends =~ ", $owner"[\ ,] ]] || fail "the package does not depend on $owner, which has $library"
        grep -q "\"name\": \"$library\", \"versionInfo\": \"[0-9][0-9.]*\"" "$bill" ||
            fail "the bill of materials lacks $library or its version"
    done
    [[ $(wc -w <<<"$needed") -ge 10 && $(grep -c DYNAMIC_LINK "$bill") -eq $(wc -w <<<"$needed") ]] ||
        fail "the bill of materials names other libraries than the program needs"
fi
for needed in sqlite3 dbus; do
    [[ $depends =~ ", $needed"[\ ,] ]] || fail "the package does not depend on $needed"
done
if command -v lintian >/dev/null; then
    quiet "lintian has something to say" lintian --allow-root --fail-on error,warning "$package"
else
    echo "SKIP   : packaging: the package is not judged: no lintian is installed"
fi

mkdir -p "$root"/{etc,log,var/lib/dpkg/info,var/lib/dpkg/updates} && touch "$root/var/lib/dpkg/status"
run "the package cannot be installed" dpkg_in_root --install "$package"
find "$root/usr" -type f -printf './%P\n' | sort >"$work/installed"
sort >"$work/expected" <<FILES
./sbin/VYXSaveRestore
./bin/saverestorectl
./lib/systemd/system/vyxsaverestore.service
./lib/systemd/system/vyxsaverestore-retry.service
./lib/sysusers.d/vyxsaverestore.conf
./lib/tmpfiles.d/vyxsaverestore.conf
./share/lintian/overrides/vyxsaverestore
./share/dbus-1/system.d/com.corvane.Pelorin.VYXSaveRestore.conf
./share/bash-completion/completions/saverestorectl
./share/man/man1/saverestorectl.1.gz
./share/man/man8/VYXSaveRestore.8.gz
$(cd "$sources" && printf './share/doc/vyxsaverestore/%s\n' README.md SECURITY.md \
    changelog.gz copyright vyxsaverestore.spdx.json docs/*.md)
FILES
quiet "other files than expected are installed" diff "$work/expected" "$work/installed"
run "the group was not made" grep '^vyxapplication:' "$root/etc/group"
run "the unit was not enabled" test -L "$root/etc/systemd/system/multi-user.target.wants/$unit"
run "the working directory was not made" test -d "$root/tmp/VYXApplication/SaveRestore"
[ "$(stat -c %a "$root"/tmp/VYXApplication{,/SaveRestore} | xargs)" = "755 700" ] || fail "others may use the directory"
for file in "$unit" vyxsaverestore-retry.service; do
    sed "s|=/usr/sbin/|=$root/usr/sbin/|" "$root/usr/lib/systemd/system/$file" >"$work/$file"
done
if [ -d /run/systemd ] || [ -w /run ]; then
    quiet "the unit is not sound" systemd-analyze verify --man=no --recursive-errors=no "$work/$unit"
    # In tenths: 2.5, of 10.
    run "the unit leaves the service too much" systemd-analyze security --offline=true --threshold=25 "$work/$unit"
else
    echo "SKIP   : packaging: the unit is not judged: systemd-analyze may not make /run/systemd"
fi
if command -v groff >/dev/null; then
    for page in "$root"/usr/share/man/man?/*.gz; do
        gzip -dc "$page" >"$work/page"
        quiet "a man page has warnings" groff -man -ww -Tutf8 -z "$work/page"
    done
else
    echo "packaging: the man page is not tried: no groff"
fi

run "the device cannot be laid out" "$sources/device/make-device" "$root" "$programs"
cp "$sources/tests/support/strict-bus.conf" "$work/bus.conf"
nobody=2147483000
use_policy "$(id -u)" "$nobody"
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$work/bus VYX_DEVICE_ROOT=$root VYX_LOG_LEVEL=7
start_program bus dbus-daemon "--config-file=$work/bus.conf" "--address=$DBUS_SYSTEM_BUS_ADDRESS" --nofork
wait_until 10 bus_answers || fail "the bus does not answer"
for module in SettingsManager Scheduler ApplicationManager; do
    start_module "$module" || fail "$module does not start"
done
start_program VYXSaveRestore "$root/usr/sbin/VYXSaveRestore"
wait_until 60 owns_name VYXSaveRestore || fail "the installed service does not start"
run "root may not save" call VYXSaveRestore startSaveOnRepository ""
[ "$(<"$work/output")" = "b true" ] || fail "the save did not succeed"
run "the save wrote no modules list" test -s "$root/media/repository/modules-list.sav"

use_policy "$nobody" "$nobody"
call VYXSaveRestore getCapabilities "" >"$work/output" 2>&1 && fail "a stranger may call the service"
[[ $(<"$work/output") == *"Access denied"* ]] || fail "a stranger's call is refused for another reason"
"$root/usr/bin/saverestorectl" status >"$work/output" 2>&1
[ $? -eq 6 ] || fail "saverestorectl does not say that a stranger may not call the service"
broadcast stranger >"$work/output" 2>&1
[[ $(control call List 2>&1) == *"Access denied"* ]] || fail "a stranger may look"

# The group for those who only look, as the guide makes it.
sed '/^```xml/,/^```$/!d; /^```/d' "$sources/docs/control.md" | sed "s/watchers/$(id -g)/" >"$work/watchers.conf"
sed -i 's|</busconfig>|<include>watchers.conf</include>&|' "$work/policy.conf"
reload_policy
for look in "call List" "call Preview" "get-property LastSave" "introspect"; do
    run "a watcher may not $look" control $look
done
for deed in "Save a{sv} 0" "Restore a{sv} 0" "Verify a{sv} 0" Cancel; do
    [[ $(control call $deed 2>&1) == *"Access denied"* ]] || fail "a watcher may $deed"
done
[[ $(call VYXSaveRestore printSettings 2>&1) == *"Access denied"* ]] || fail "a watcher may call the other interface"

use_policy "$nobody" "$(id -g)"
run "a member of the group may not save" control call Save 'a{sv}' 0
run "a member of the group may not call the service" call VYXSaveRestore getCapabilities ""
run "a member of the group may not broadcast" broadcast member
# What was broadcast before would have been heard before.
wait_until 20 grep -q "'member' said" "$root/log/VYXSaveRestore.log" || fail "a member's broadcast is not heard"
grep -q "'stranger' said" "$root/log/VYXSaveRestore.log" && fail "a stranger's broadcast is heard"
service=${process[VYXSaveRestore]}
stop_process VYXSaveRestore
run "the service did not end with status 0" wait "$service"
timeout --kill-after=5 60 "$root/usr/sbin/VYXSaveRestore" </dev/null >"$work/output" 2>&1
[[ "$? $(<"$work/output")" == "1 "*"could not take the bus name"* ]] || fail "only root may own the name"
stop_device

list_data() {
    find "$root"/{data,media} ! -path "$root/data/VYXApplication" ! -path '*/VYXSaveRestore*' -ls | sort
}
list_data >"$work/before"
run "the package cannot be removed" dpkg_in_root --remove vyxsaverestore
run "the package cannot be purged" dpkg_in_root --purge vyxsaverestore
quiet "something of the package is left" find "$root"/{usr,etc,var,tmp,data} -iname '*saverestore*'
list_data >"$work/after"
quiet "the removal touched the modules' data or the repository" diff "$work/before" "$work/after"
echo "packaging: passed"
