#!/bin/sh
# Run on a device or in its image after a package was installed: test.sh PACKAGE VERSION

case "$1" in
wsmd)
	[ -x /etc/init.d/wsmd ] && [ -f /etc/config/wsmd ] || exit 1
	[ "$(uci -q get wsmd.main)" = wsmd ] || exit 1
	wsm --help | grep -q '^usage: wsm' || exit 1
	# Without a capability file it starts, logs that and ends; this shows that all its libraries are there.
	[ -e /tmp/tk_device/tk_device.json ] && exit 0
	rm -f /tmp/sta.log
	/usr/sbin/wsmd
	[ $? -eq 1 ] && grep -q 'cap table init failed' /tmp/sta.log
	;;
libdebug-open)
	[ -f /usr/lib/libdebug.so ] && [ "$(uci -q get debug.main)" = debug ]
	;;
libwas-open)
	[ -f /usr/lib/libwas.so ]
	;;
wsm-bridge)
	[ -x /etc/init.d/wsm-bridge ] && [ "$(uci -q get wsm-bridge.main)" = bridge ] || exit 1
	wsm-bridge --help | grep -q '^usage: wsm-bridge'
	;;
wsmd-tools)
	apsim --help | grep -q '^usage: apsim' && wsm-record --help | grep -q '^usage: wsm-record'
	;;
wsm-collector)
	[ -x /etc/init.d/wsm-collector ] && [ "$(uci -q get wsm-collector.main)" = collector ] || exit 1
	wsm-collector --help | grep -q '^usage: wsm-collector'
	;;
esac
