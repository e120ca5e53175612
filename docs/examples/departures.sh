#!/bin/sh
# Prints a line for each station that leaves, with the reason:    docs/examples/departures.sh | logger -t stations
# Quotes inside a text of the message are written as \", so no SSID can look like a member.
ubus subscribe sta | while IFS= read -r line; do
    case $line in *'"log_type":2,'*) ;; *) continue ;; esac
    member() { printf '%s\n' "$line" | sed -n "s/.*\"$1\":\"\([0-9A-Za-z_:]*\)\".*/\1/p"; }
    echo "$(member mac) left $(member ssid_ifname): $(member off_reason)"
done
