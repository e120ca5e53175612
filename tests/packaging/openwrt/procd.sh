# shellcheck shell=dash
# The init library's calls, one line each, as the service makes them.

for call in procd_open_instance procd_close_instance procd_set_param procd_append_param procd_add_jail \
	procd_add_jail_mount procd_add_jail_mount_rw procd_add_reload_trigger procd_send_signal logger chown; do
	eval "$call() { echo $call \"\$@\"; }"
done

start() { start_service "$@"; }

RADIOS='radio0 radio1' # of the device's configuration

uci() {
	local radio

	case "$*" in
	'-q get system.@system[0].mod_type') echo ap ;;
	'-q get debug.main.level') echo 3 ;;
	'-q show wireless')
		for radio in $RADIOS; do echo "wireless.$radio=wifi-device"; done
		echo "wireless.@wifi-iface[0]=wifi-iface"
		;;
	*) return 1 ;;
	esac
}
BRIDGE_RADIOS='' # as the options of its configuration list them
config_load() { [ "$*" = wsm-bridge ] || [ "$*" = wsm-collector ]; }
config_get() { # VARIABLE main OPTION [DEFAULT]: what OPTION_... says
	case "$2 $3" in
	'main control') eval "$1=\${BRIDGE_CONTROL:-\$4}" ;;
	main\ *) eval "$1=\${OPTION_$3:-\$4}" ;;
	*) return 1 ;;
	esac
}
config_get_bool() { config_get "$@"; }
config_list_foreach() {
	local one
	[ "$1 $2" = 'main radio' ] || return 1
	for one in $BRIDGE_RADIOS; do "$3" "$one"; done
}
jsonfilter() { [ "$*" = "-i $CAPABILITY_FILE -e @.wireless.wireless_path" ] && echo "$WIRELESS_FOLDER"; }
