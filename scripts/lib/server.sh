# The repository on a server: nginx with TLS that demands the device's certificate. Sourced after the other libraries.

port_is_open() {
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

free_port() {
    local port
    for port in $(shuf -i 20000-59999 -n 50); do
        if ! port_is_open "$port"; then
            echo "$port"
            return
        fi
    done
    return 1
}

# The device's certificate, key and authorities, and the tool that tells where they are.
install_certificates() {
    device/server/make-pki "$root/pki" >"$root/log/pki" 2>&1 || die "no certificates: $(tail -n 3 "$root/log/pki")"
    mkdir -p "$root/usr/bin"
    install -m 755 device/server/getVYXinfo "$root/usr/bin/getVYXinfo"
    printf '%s\n' "CERT=$root/pki/device.pem" "CERT_PKEY=$root/pki/device.key" "CA=$root/pki/ca.pem" STATUS=SECURED \
        >"$root/etc/VYXApplication/pki.conf"
}

# Outside developer mode nothing but such a server is accepted.
start_server() {
    local port
    port=$(free_port) || die "no free port"
    install_certificates
    start_program server device/server/start-server "$root/server" "$port" "$root/pki"
    wait_until 10 port_is_open "$port" || die "the server does not start: $(tail -n 3 "$root/log/server.log")"
    repository=$root/server/store
    repository_url=https://127.0.0.1:$port/save
    sed -i "s|^SaveRestoreUrl=.*|SaveRestoreUrl=$repository_url|" "$root/etc/VYXApplication/settings.conf"
    rm "$root/data/dev_mode"
    echo "The repository is $repository_url; developer mode is off."
}

# A request must not begin before the one before it has ended; times are to the millisecond.
requests_one_at_a_time() {
    awk -F '\t' '{ if ($1 - $2 < last - 0.002) late++; last = $1 } END { exit late > 0 || NR == 0 }' "$1"
}

all_with_device_certificate() {
    awk -F '\t' '$6 !~ /device 0001/ { other++ } END { exit other > 0 || NR == 0 }' "$1"
}

show_access_log() {
    local log=$root/server/log/access.log
    awk -F '\t' '{ count[$7 " " $9]++ } END { for (kind in count) printf "   %5d  %s\n", count[kind], kind }' "$log" | sort -k 2
    echo "   Client certificates: $(cut -f 6 "$log" | sort -u | paste -s -d ';')"
    verbose=true
    check "every request" "with the certificate of the device" all_with_device_certificate "$log"
    check "every request" "after the one before had ended" requests_one_at_a_time "$log"
}
