#!/bin/sh
# Runs inside a fresh root, in namespaces of its own: the installed programs at work, from the driver's first client to the
# daemon's clean end. Prints what the test checks.
set -eu

wait_for() { # command...: until it succeeds, ten seconds at most
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ $tries -le 100 ] || { echo "waited in vain for: $*" >&2; cat /tmp/sta.log >&2; exit 1; }
        sleep 0.1
    done
}

mount -t proc proc /proc
mount -t tmpfs tmpfs /tmp
mount -t tmpfs tmpfs /run
mkdir -p /etc/config /tmp/tk_device
examples=/usr/share/doc/wsmd/examples
cp $examples/config/* /etc/config/
cp $examples/tk_device/tk_device.json /tmp/tk_device/

ubusd &
wait_for ubus list
apsim --population 3 --seed 1 >/dev/null 2>&1 &
wait_for test -S /var/run/was.sock
wsm-collector --json --count 1 >/tmp/reports &
wait_for test -S /tmp/sta_server_domain
wsmd &
daemon=$!
wait_for test -s /tmp/reports
wait_for ubus -S list sta

ubus -S call sta get '{"get_all_sta_status":"online"}'
head -n 1 /tmp/reports
uci get wsmd.main.log_file_size
kill -TERM $daemon
status=0
wait $daemon || status=$?
echo "daemon ended with $status"
