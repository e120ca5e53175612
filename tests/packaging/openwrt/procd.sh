# shellcheck shell=dash
# The init library's calls, one line each, as the service makes them.

for call in procd_open_instance procd_close_instance procd_set_param procd_append_param procd_add_jail \
	procd_add_jail_mount procd_add_jail_mount_rw procd_add_reload_trigger; do
	eval "$call() { echo $call \"\$@\"; }"
done

uci() { [ "$*" = '-q get system.@system[0].mod_type' ] && echo ap; }
jsonfilter() { [ "$*" = "-i $CAPABILITY_FILE -e @.wireless.wireless_path" ] && echo "$WIRELESS_FOLDER"; }
