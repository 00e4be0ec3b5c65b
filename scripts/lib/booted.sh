# Sourced by scripts/package-test: boots systemd in the test's Debian, with processes, network and control
# groups of its own, and tries the nightly service, the instances and the monitoring there as an
# administrator would. It needs root and a kernel that allows the mounts.
# shellcheck shell=bash

site=http://127.0.0.1:8080

# Prints the directory of the control groups; nothing if this machine does not allow new ones.
control_groups() {
    local groups
    groups=$(findmnt --noheadings --first-only --types cgroup2 --output TARGET) || return 0
    unshare --cgroup --mount --pid --net --uts --ipc --fork \
        mount -t cgroup2 none "$work/tmp" 2>/dev/null || return 0
    mkdir "$groups/refetchd-test-$$" 2>/dev/null || return 0
    printf '%s\n' "$groups/refetchd-test-$$"
}

# init ROOT: makes the root complete, as the first process of its namespaces, and becomes systemd.
# shellcheck disable=SC2317 # boot calls it in another shell
init() {
    local device
    set -e
    mount --make-rprivate /
    mount --bind "$1" "$1"
    cd "$1"
    mount -t proc proc proc
    mount -t sysfs -o ro sysfs sys
    mount -t cgroup2 cgroup2 sys/fs/cgroup
    mount -t tmpfs -o mode=755 tmpfs dev
    mount -t tmpfs -o mode=755 tmpfs run
    mount -t tmpfs -o mode=1777 tmpfs tmp
    for device in null zero full random urandom tty; do
        touch "dev/$device"
        mount --bind "/dev/$device" "dev/$device"
    done
    mkdir dev/pts dev/shm run/outside
    mount -t devpts -o newinstance,ptmxmode=666 devpts dev/pts
    mount -t tmpfs -o mode=1777 tmpfs dev/shm
    ln -s pts/ptmx dev/ptmx
    ln -s /proc/self/fd dev/fd
    ip link set lo up
    pivot_root . run/outside
    umount -l /run/outside
    exec env -i container=refetchd PATH=/usr/sbin:/usr/bin /lib/systemd/systemd --unit=multi-user.target
}

# boot GROUPS: runs systemd in the root, in these control groups, until a signal ends it. In the background.
boot() {
    local outside _
    trap : TERM
    (
        echo "$BASHPID" >"$1/cgroup.procs"
        exec unshare --cgroup --mount --pid --net --uts --ipc --fork --kill-child \
            bash -c "$(declare -f init); init \"\$0\"" "$root"
    ) </dev/null &
    outside=$!
    echo "$outside" >"$work/outside.pid"
    wait "$outside" || true
    kill -KILL "$outside" 2>/dev/null || true
    wait "$outside" 2>/dev/null || true
    for _ in $(seq 100); do # the groups are busy until the last process is gone
        find "$1" -depth -type d -exec rmdir {} \; 2>/dev/null || true
        [ -d "$1" ] || break
        sleep 0.1
    done
}

# inside COMMAND...: in the booted system.
inside() {
    nsenter --target "$systemd" --mount --uts --ipc --net --pid --cgroup --root --wd \
        env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 SYSTEMD_PAGER= "$@" </dev/null
}

# wait_until COMMAND...: until it succeeds, at most 30 seconds.
wait_until() {
    local _
    for _ in $(seq 150); do
        ! "$@" >/dev/null 2>&1 || return 0
        sleep 0.2
    done
    fail "not within 30 seconds: $*"
}

start_systemd() {
    boot "$1" >"$work/boot.log" 2>&1 &
    daemons[systemd]=$!
    wait_until test -s "$work/outside.pid"
    wait_until pgrep --parent "$(<"$work/outside.pid")"
    systemd=$(pgrep --parent "$(<"$work/outside.pid")")
    wait_until inside systemctl is-active multi-user.target
    wait_until inside bash -c ': </dev/tcp/127.0.0.1/3128'
}

# property UNIT NAME: prints it.
property() { inside systemctl show --property="$2" --value "$1"; }

is_over() { [ "$(property "$1" ActiveState)" = inactive ]; }

# expect_property UNIT NAME VALUE
expect_property() {
    local value
    value=$(property "$1" "$2")
    [ "$value" = "$3" ] || fail "$1: $2 is $value, not $3: $(inside systemctl status --lines=30 "$1")"
}

# Begins a new part of the journal and of what find can call newer.
mark() {
    inside journalctl --quiet --lines=0 --show-cursor | sed 's/^-- cursor: //' >"$work/cursor"
    touch "$work/cursor"
}

# journal UNIT: prints what the service and systemd wrote about it since the mark.
journal() { inside journalctl --quiet --output=cat --after-cursor="$(<"$work/cursor")" --unit="$1"; }

# expect_closing UNIT PATTERN: the run's closing line is in the journal, and fits.
expect_closing() {
    journal "$1" | grep '^refetchd: run ' | tail -n 1 | tee "$work/closing" | sed 's/^/  | /'
    expect grep -qE "$2" "$work/closing"
}

# start_night UNIT RESULT STATUS PATTERN: a run ends with this result and exit status of the agent, and the
# pattern fits its closing line. The warnings of refetchd-check do not look like a failure.
start_night() {
    mark
    inside systemctl start "$1" 2>/dev/null || [ "$2" != success ] || fail "$(inside systemctl status "$1")"
    expect_property "$1" Result "$2"
    expect_property "$1" ExecMainStatus "$3"
    expect_closing "$1" "$4"
    ! journal "$1" | grep -F 'Control process exited' || fail "a command before or after the agent failed"
}

# expect_page DIRECTORY PATTERN: the page of the last nights below it was written since the mark, and fits.
expect_page() {
    local page=$root$1/pub/en_US/reports/nights.html
    expect test -n "$(find "$page" -newer "$work/cursor")"
    expect grep -qE "$2" "$page"
}

prepare_system() {
    local page
    apt_in_root install systemd-sysv dbus nginx-light curl prometheus prometheus-node-exporter
    apt_in_root install "/tmp/build/package/${deb##*/}"
    rm -f "$root/usr/sbin/policy-rc.d" "$root"/etc/{nginx,squid}/conf.d/refetchd.conf
    for page in apache2 varnish prometheus; do
        in_root systemctl --quiet disable "$page" 2>/dev/null || true
    done

    mkdir -p "$root/srv/site/slow"
    printf '<a href="one.html">1</a> <a href="two.html">2</a>\n' >"$root/srv/site/index.html"
    for page in one two slow/page; do
        head -c 5000 /dev/zero | tr '\0' x >"$root/srv/site/$page.html"
    done
    cat >"$root/etc/nginx/conf.d/site.conf" <<'END'
server {
    listen 127.0.0.1:8080;
    root /srv/site;
    add_header Cache-Control max-age=3600;
    location /slow/ { limit_rate 1; }
}
END
    sed -i 's/^http_port .*/http_port 127.0.0.1:3128/' "$root/etc/squid/squid.conf"
    printf '%s\n' 'visible_hostname squid' 'shutdown_lifetime 0 seconds' 'pinger_enable off' \
        'max_filedescriptors 1024' >"$root/etc/squid/conf.d/test.conf"
    sed -i "s,^#\?loadurl .*,loadurl $site/," "$root/etc/tarnproxy.conf"
    # The second line makes refetchd-check warn.
    printf '%s\n' 'metricsfile /var/lib/prometheus/node-exporter/refetchd.prom' 'useragent none' \
        >>"$root/etc/tarnproxy.conf"
    printf '#!/bin/sh\n{ echo "$@"; cat; } >>/var/mail/test\n' >"$root/usr/local/bin/mail"
    chmod 755 "$root/usr/local/bin/mail"
}

# The documents' commands for monitoring, and what Prometheus and Grafana get.
check_monitoring() {
    printed '^curl .*:9100' >"$work/look" # for later
    say "The monitoring is installed as the documents say; Prometheus accepts the alerts"
    printed '^(install|promtool) ' | while read -r command; do
        printf '  %s\n' "$command"
        in_root sh -ec "${command//NAME/nightly}" >"$work/command.log" 2>&1 || fail "$(cat "$work/command.log")"
    done
    mkdir -p "$root/tmp/monitoring"
    cp packaging/monitoring/* "$root/tmp/monitoring"
    in_root sh -ec 'cd /tmp/monitoring && promtool test rules refetchd.rules.test.yml' >"$work/command.log" ||
        fail "$(cat "$work/command.log")"
    # An expression of the dashboard is valid if a rule with it is.
    jq '{groups: [{name: "dashboard", rules: [.panels[] | .targets[] | .expr] |
        to_entries | map({record: "x\(.key)", expr: .value})}]}' \
        packaging/monitoring/refetchd-dashboard.json >"$root/tmp/monitoring/dashboard.yml"
    in_root promtool check rules /tmp/monitoring/dashboard.yml >"$work/command.log" ||
        fail "$(cat "$work/command.log")"
}

# check_metrics FILE: each metric, verdict and other label that alerts and dashboard name is one in this
# file, which the agent has written.
check_metrics() {
    local name
    cat packaging/monitoring/refetchd.rules.yml packaging/monitoring/refetchd-dashboard.json | tr -d "\\\\" |
        grep -oE 'refetchd_[a-z_]+\b|\b(verdict|by|class|source)!?="[a-z0-9_]+"' | tr -d '!' | sort -u | while read -r name; do
        grep -qE "(^|[{,])$name([ {,}]|\$)" <(grep -v '^#' "$1") || fail "the agent writes no $name"
        printf '  %s\n' "$name"
    done
}

test_nights() {
    local report=$root$root_directory/$report
    inside systemctl enable --quiet --now refetchd.timer # it also keeps systemd's record of the service
    say "A night with Squid running: success, a closing line, a page, and metrics that node_exporter reads"
    start_night refetchd.service success 0 ': 3 requested: .*0 left in the queue'
    journal refetchd.service >"$work/journal"
    grep -q ' useragent: ' "$work/journal" || fail "no warning: $(<"$work/journal")"
    expect_page "$root_directory" "$site/"
    expect inside sh -c "$(<"$work/look")" | expect grep '^refetchd_urls{.*"stored"' | sed 's/^/  | /'
    check_metrics "$root/var/lib/prometheus/node-exporter/refetchd.prom"

    say "Nights with Squid denying everything, and with Squid stopped: the service fails, and a mail says so"
    printf 'http_access deny all\n' >"$root/etc/squid/conf.d/deny.conf"
    inside systemctl restart squid.service
    start_night refetchd.service exit-code 3 ' failed \(.*status 403'
    wait_until grep -q 'refetchd.service failed on' "$root/var/mail/test"
    inside systemctl stop squid.service
    sed -i 's/^maxruntime .*/maxruntime 3/' "$root/etc/tarnproxy.conf" # it is waited for until then
    start_night refetchd.service exit-code 3 ' failed \(.*no connection'
    expect inside systemctl --failed --quiet | grep -q 'refetchd.service'
    expect_page "$root_directory" 'no connection'
    expect grep -q ' failed (.* no connection' "$root/var/mail/test"
    sed -i 's/^maxruntime .*/maxruntime 2 hours/' "$root/etc/tarnproxy.conf"
    rm "$root/etc/squid/conf.d/deny.conf"
    inside systemctl start squid.service

    say "A ranking that hangs, even after SIGTERM: it is ended, and the run goes on with the older hits file"
    expect_property refetchd-hits.service TimeoutStartUSec 10min
    expect_property refetchd-hits@nightly.service TimeoutStartUSec 10min
    mkfifo "$root/srv/hangs.log"
    printf 'LOGS=/srv/hangs.log\n' >"$root/etc/default/refetchd-hits"
    printf '7 100.0%% %s/one.html\n' "$site" >"$root$root_directory/logs/hitsfile.txt"
    mkdir "$root/etc/systemd/system/refetchd-hits.service.d"
    printf '[Service]\nTimeoutStartSec=3s\nExecStart=\nExecStart=/bin/sh -c "trap %s TERM; exec %s"\n' "''" \
        "$(value refetchd-hits.service ExecStart)" >"$root/etc/systemd/system/refetchd-hits.service.d/hang.conf"
    inside systemctl daemon-reload
    SECONDS=0
    start_night refetchd.service success 0 ': 3 requested: .*0 left in the queue'
    expect test "$SECONDS" -lt 40 # three, and ten until SIGKILL
    expect_property refetchd-hits.service Result timeout
    journal refetchd-hits.service | expect grep -F 'The ranking took too long' | sed 's/^/  | /'
    expect grep -qE '"topn",verdict="[a-z_]+"\} 1$' "$root/var/lib/prometheus/node-exporter/refetchd.prom"
    rm -r "$root/etc/systemd/system/refetchd-hits.service.d" "$root/etc/default/refetchd-hits"
    inside systemctl daemon-reload

    say "A service that is stopped in the middle of a run ends in good order, with a report"
    start_night refetchd.service success 0 ': 3 requested'
    sed -i "\$a loadurl $site/slow/page.html" "$root/etc/tarnproxy.conf"
    mark
    inside systemctl start --no-block refetchd.service
    wait_until grep -q 'working on .*slow' "$root/var/log/refetchd/trace.log"
    SECONDS=0
    inside systemctl stop refetchd.service
    expect test "$SECONDS" -lt 15
    expect_property refetchd.service Result success
    expect_property refetchd.service ExecMainStatus 0
    expect_closing refetchd.service 'run 1 of 1'
    expect grep -q 'Total URLs loaded' "$report"
    expect_page "$root_directory" "$site/"
    sed -i '$d' "$root/etc/tarnproxy.conf"
}

# expect_hidden FILE...: other users cannot read them.
expect_hidden() {
    local file
    for file in "$@"; do
        expect inside test -s "$file"
        expect_not inside runuser -u nobody -- test -r "$file"
    done
}

test_instances() {
    local directory=$root_directory/nightly
    say "An instance runs each night: its timer starts hits, run and page, which nobody else may read"
    make_instance nightly "s,^loadurl .*,loadurl $site/one.html," \
        's,^metricsfile .*,metricsfile /var/lib/refetchd/nightly/metrics.prom,'
    printf 'LOGS=/var/log/squid/access.log\nOPTIONS="-m 1"\n' >"$root/etc/refetchd/nightly.hits"
    inside systemctl enable --quiet --now refetchd@nightly.timer
    expect_property refetchd@nightly.timer Unit refetchd-nightly@nightly.service
    inside systemctl list-timers refetchd@nightly.timer | sed -n 's/^/  | /; 1,2p'
    mkdir -p "$root/etc/systemd/system/refetchd@nightly.timer.d"
    printf '[Timer]\nOnCalendar=\nOnActiveSec=1s\nRandomizedDelaySec=0\n' \
        >"$root/etc/systemd/system/refetchd@nightly.timer.d/now.conf"
    inside systemctl daemon-reload
    mark
    inside systemctl restart refetchd@nightly.timer
    wait_until inside sh -c "curl -s http://127.0.0.1:9100/metrics | grep -q '^refetchd_urls{config=.nightly'"
    expect inside sh -c "curl -s http://127.0.0.1:9100/metrics | grep -q '^node_textfile_scrape_error 0'"
    wait_until is_over refetchd-nightly@nightly.service
    expect_property refetchd-nightly@nightly.service Result success
    expect_property refetchd-hits@nightly.service Result success
    expect_closing refetchd-nightly@nightly.service 'requested'
    expect_page "$directory" "$site/one.html"
    expect_hidden "$directory/"{logs/hitsfile.txt,pub/en_US/reports/{refetchd,nights}.html} /var/log/refetchd/nightly/results.log

    say "An instance runs continuously: its log is rotated while it runs, and its page written each hour"
    directory=$root_directory/cont
    make_instance cont '/^\(maxurls\|metricsfile\) /d' "\$a loadurl $site/slow/page.html"
    printf 'LOGS=/var/log/squid/access.log\nOPTIONS="-m 1"\n' >"$root/etc/refetchd/cont.hits"
    inside systemctl start refetchd-hits@cont.service
    expect test -s "$root$directory/logs/hitsfile.txt"
    # This instance logs nothing, so the signal for the others would end it.
    make_instance silent '/^resultslog /d' "s,^loadurl .*,loadurl $site/slow/page.html,"
    mkdir -p "$root/var/log/refetchd/silent"
    in_root install -o refetchd -g refetchd -m 644 /etc/hostname /var/log/refetchd/silent/results.log
    inside systemctl enable --quiet --now refetchd@cont.service refetchd-hits@cont.timer refetchd@silent.service
    wait_until grep -qs 'working on .*slow' "$root/var/log/refetchd/cont/trace.log"
    wait_until grep -qs 'working on .*slow' "$root/var/log/refetchd/silent/trace.log"
    wait_until test -s "$root/var/log/refetchd/cont/results.log"
    inside logrotate --force /etc/logrotate.d/refetchd
    expect test -s "$root/var/log/refetchd/cont/results.log.1"
    expect_property refetchd@silent.service ActiveState active
    expect_property refetchd@cont.service ActiveState active
    expect_property refetchd-report@cont.timer ActiveState active
    mark
    inside systemctl start refetchd-report@cont.service
    expect_page "$directory" "$site/"
    mark
    inside systemctl stop refetchd@cont.service
    expect grep -q 'slow/page.html' "$root/var/log/refetchd/cont/results.log" # the first line since the rotation
    expect_property refetchd@cont.service Result success
    expect_property refetchd-report@cont.timer ActiveState inactive
    expect grep -q 'Total URLs loaded' "$root$directory/$report"
    expect_page "$directory" "$site/"
}

test_removal() {
    say "The package is removed from the running system, with its services and timers"
    inside systemctl start refetchd@cont.service
    inside env DEBIAN_FRONTEND=noninteractive apt-get -qq -y purge refetchd >"$work/apt.log" 2>&1 || fail "$(cat "$work/apt.log")"
    expect test -z "$(inside systemctl list-units --no-legend --state=active 'refetchd*')"
    expect test -z "$(find "$root/etc/systemd/system/"*.wants "$root/var/lib/systemd/timers" -name '*refetchd*')"
}

# Runs all this in the root, with the package of the test.
test_booted() {
    local groups
    kill "${daemons[Squid]}" || true
    wait "${daemons[Squid]}" || true
    unset 'daemons[Squid]'
    prepare_system
    check_monitoring
    groups=$(control_groups)
    if [ -z "$groups" ]; then
        say "Skipped: this machine does not allow to boot systemd in a namespace"
        return
    fi
    say "Booting systemd"
    start_systemd "$groups"
    test_nights
    test_instances
    test_removal
    kill "${daemons[systemd]}" || true
    wait "${daemons[systemd]}" || true
    unset 'daemons[systemd]'
}
