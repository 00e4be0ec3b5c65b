# Sourced by the scripts that run the agent with real servers: nginx with a site on two loopback
# addresses, and Squid in front of it, all in a work directory. At the end, also after Ctrl-C, the
# processes in "daemons" are stopped and the work directory is removed.
# shellcheck shell=bash

declare -A address=([main]=127.0.0.1 [partner]=127.0.0.2)
declare -A daemons=() # process ids by name
work=''

clean_up() {
    trap - EXIT
    trap '' INT TERM HUP
    local pid
    for pid in "${daemons[@]}"; do
        kill "$pid" 2>/dev/null || true
        kill -CONT "$pid" 2>/dev/null || true
    done
    for pid in "${daemons[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    [ -z "$work" ] || rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

build_agent() {
    say "Building refetchd (Release)"
    cmake --preset release >/dev/null
    cmake --build --preset release
}

# make_work NAME: makes the work directory, "work", of the script with this name.
make_work() {
    work=$(mktemp -d "${TMPDIR:-/tmp}/refetchd-$1-XXXXXX")
    chmod 755 "$work"
    mkdir "$work/site" "$work/squid" "$work/tmp" "$work/saved"
    mkdir -p "$work/root/logs" "$work/root/pub/en_US/reports"
}

port_is_open() { (exec 3<>"/dev/tcp/$1/$2") 2>/dev/null; }

# Sets "port" to one that is free on both loopback addresses.
pick_port() {
    port=$((20000 + RANDOM % 12000))
    while port_is_open "${address[main]}" "$port" || port_is_open "${address[partner]}" "$port"; do
        port=$((port + 1))
    done
}

# wait_for_port HOST PORT NAME LOG
wait_for_port() {
    local _
    for _ in $(seq 300); do
        kill -0 "${daemons[$3]}" 2>/dev/null || break
        if port_is_open "$1" "$2"; then
            return
        fi
        sleep 0.1
    done
    cat "$4" >&2 || true
    fail "$3 did not start"
}

# start_site PORT: starts nginx with the servers that the script has written to servers.conf in the
# work directory; they listen on this port of the loopback addresses.
start_site() {
    cat >"$work/nginx.conf" <<END
daemon off;
worker_processes 1;
pid $work/nginx.pid;
error_log $work/nginx-error.log;
events { worker_connections 512; }
http {
    access_log off;
    client_body_temp_path $work/tmp;
    proxy_temp_path $work/tmp;
    fastcgi_temp_path $work/tmp;
    uwsgi_temp_path $work/tmp;
    scgi_temp_path $work/tmp;
    types { text/html html; text/css css; text/plain txt; image/svg+xml svg; }
    add_header Cache-Control max-age=3600;
    include $work/servers.conf;
}
END
    /usr/sbin/nginx -e "$work/nginx-error.log" -c "$work/nginx.conf" >"$work/nginx.out" 2>&1 &
    daemons['the sample site']=$!
    wait_for_port "${address[main]}" "$1" 'the sample site' "$work/nginx-error.log"
}

# configure_squid HOST: writes a configuration with which Squid listens on this host, and sets
# "squid_port" to its port.
configure_squid() {
    pick_port
    squid_port=$port
    cat >"$work/squid/squid.conf" <<END
http_port $1:$squid_port
http_access allow localhost
http_access deny all
visible_hostname squid
cache_mem 16 MB
memory_cache_shared off
max_filedescriptors 1024
pinger_enable off
netdb_filename none
shutdown_lifetime 0 seconds
pid_filename none
cache_log $work/squid/cache.log
logformat brief %Ss/%03>Hs %ru %{User-Agent}>h
access_log stdio:$work/squid/access.log brief
coredump_dir $work/squid
END
    # When root starts Squid, it changes to this user.
    if [ "$(id -u)" -eq 0 ]; then
        chown -R proxy:proxy "$work/squid"
    fi
}

# Starts Squid without waiting for it; see wait_for_port.
start_squid() {
    /usr/sbin/squid -N -f "$work/squid/squid.conf" >"$work/squid.out" 2>&1 &
    daemons[Squid]=$!
}
