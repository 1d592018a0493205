# Radios, in software: what one sends, those on its channel hear.  Sourced by the cases that want some, after lab/lib/all.sh.
#
#   make_radios NUMBER         skips the case on a kernel that has none; the devices are wlan0, wlan1, ...
#   become_access_point DEVICE PORT MAC
#                              the device is what hostapd makes a port of
#   start_hostapd FILE         and waits until its networks are on the air
#   add_station CLIENT DEVICE  the device's radio goes to a client's name space, as eth0
#   join CLIENT LINE...        wpa_supplicant with a network of these lines; waits until the client is in
#   leave CLIENT
#   station CLIENT WHAT        of what wpa_cli status says: bssid, key_mgmt, ...
#
# A client of CLIENT R-V, its address and its name space are those of lab/lib/topology.sh.

# That of channel 6. Looking at all the others takes an emulated machine half a minute.
CHANNEL_MHZ=2437

make_radios() {
	modprobe -q -n mac80211_hwsim || skip "this kernel has no radios in software (mac80211_hwsim)"
	modprobe mac80211_hwsim radios="$1"
	expect_success test -e "/sys/class/net/wlan$(($1 - 1))/phy80211"
	# Whatever is on the air, for a capture.
	ip link set hwsim0 up
}

become_access_point() {
	printf '%s\n' "link set $1 down" "link set $1 name $2" "link set $2 address $3" | ip -batch -
}

# It says so once, when the last of its networks is set up.
start_hostapd() {
	hostapd "$1" >"$CASE_DIR/hostapd.log" 2>&1 &
	wait_until 90 "hostapd's networks are on the air" grep -q 'AP-ENABLED' "$CASE_DIR/hostapd.log"
}

add_station() {
	local client=$1 device=$2 radio
	radio=$(<"/sys/class/net/$device/phy80211/name")
	new_mac "$client"
	ip netns add "client-$client"
	iw phy "$radio" set netns name "client-$client"
	ip -n "client-$client" -batch - <<-END
		link set $device down
		link set $device name eth0
		link set eth0 address $REPLY
	END
	furnish_namespace "client-$client"
}

station() { in_client "$1" wpa_cli -p "/run/wpa-$1" -i eth0 status | sed -n "s/^$2=//p"; }

# By its own word, and by that of the access point, which takes its frames from then on.
is_in() {
	local port
	[[ $(station "$1" wpa_state) == COMPLETED ]] || return 1
	for port in /sys/class/net/wlan-*/phy80211; do
		port=${port%/phy80211}
		! iw dev "${port##*/}" station get "$(mac_of "$1")" 2>/dev/null | grep 'authorized:.*yes' >/dev/null || return 0
	done
	return 1
}

is_in_soon() {
	local left=120
	! waiting_is_free || left=40
	for ((; left; left--)); do
		! is_in "$1" || return 0
		sleep 1
	done
	return 1
}

join() {
	local client=$1 tries
	shift
	printf '%s\n' "ctrl_interface=/run/wpa-$client" p2p_disabled=1 'network={' scan_freq="$CHANNEL_MHZ" "$@" '}' \
		>"/run/wpa-$client.conf"
	ip netns exec "client-$client" wpa_supplicant -i eth0 -D nl80211 -c "/run/wpa-$client.conf" \
		>>"$CASE_DIR/wpa-$client.log" 2>&1 &
	# An access point that computes for longer than the 200 ms which a client waits is asked a second time, begins anew, and the
	# two disagree about keys until one gives up.
	for tries in 1 2 3; do
		! is_in_soon "$client" || return 0
		step "client $client tries again"
		in_client "$client" wpa_cli -p "/run/wpa-$client" -i eth0 disconnect >/dev/null
		in_client "$client" wpa_cli -p "/run/wpa-$client" -i eth0 reconnect >/dev/null
	done
	wait_until 40 "client $client is in the network" is_in "$client"
}

leave() { in_client "$1" wpa_cli -p "/run/wpa-$1" -i eth0 terminate >/dev/null; }
