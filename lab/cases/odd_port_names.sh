# Bridge ports whose names are no, or nearly, names of wireless interfaces, and
# a port of a second bridge: what each is taken for shows in where the request
# of its client is redirected, or that it is not.
#
#   client-1-1 e0, e1, ... -- the ports below \
#              eth0        -- wlan-1-1 -------- br0 -- uplink0 -- upstream
#              ...         -- wlan-3-8 -------- br1

make_frame_bench 1-1

ports=(
	wlan-1-9=br0:20081 wlan-0-17=br0:20081 wlan--1-24=br0:10088 wlan-1-17=br0:30081 wlan-2-0=br0:10088
	wlan-1-1.5=br0:10081 wlan-01-01=br0:10081 wlan-1-1abc=br0:10081 wlan--0-9=br0:10081 wlan-1-01-7=br0:10081
	# No row: IPv4 and IPv6 do not enter.
	wlan=drop wlan-=drop wlanx=drop wlan-1=drop wlan-1-=drop wlan-0-1=drop wlan-4-1=drop wlan-0x1-1=drop
	wlan-+1-1=drop wlan-1--1=drop wlan-536870913-=drop wlan-é-1=drop
	# Not wireless.
	Wlan-1-1=same wla-1-1=same lan-1-1=same
	# The second bridge: its hardware address, the first one's address.
	wlan-3-8=br1:30088
	# OWE companions: not mapped, mapped, mapped to a companion (whose own mapping does not count), no companion's row.
	wlan-1-14=drop wlan-2-15=br0:10081 wlan-2-16=br0:20086 wlan-4-14=drop
)
{
	echo "link add br1 address 02:00:00:00:00:02 type bridge forward_delay 0 mcast_snooping 0"
	echo "link set br1 up"
	number=0
	for port in "${ports[@]%=*}"; do
		bridge=br0
		[[ $port != wlan-3-8 ]] || bridge=br1
		echo "link add name $port type veth peer name e$number netns client-1-1"
		echo "link set dev $port master $bridge"
		echo "link set dev $port up"
		number=$((number + 1))
	done
} | ip -batch -
for ((i = 0; i < ${#ports[@]}; i++)); do echo "link set e$i up"; done | ip -n client-1-1 -batch -
all_forward() {
	local port
	for port in "${ports[@]%=*}"; do [[ $(<"/sys/class/net/$port/brport/state") == 3 ]] || return; done
}
wait_until 20 "all ports forward" all_forward

step "without the module all of them are open"
open=()
for port in "${ports[@]%=*}"; do
	verdict=same
	# Nobody is upstream of that bridge.
	[[ $port != wlan-3-8 ]] || verdict=drop
	open+=("$port=$verdict")
done
expect_success python3 -S "$LAB/lib/port_names.py" "${open[@]}"
load_module
for interface in wlan-{1-1,1-8,2-1,2-6,3-1,3-8}; do cpctl interface set "$interface" mode on; done
cpctl interface owe map wlan-2-15 wlan-1-1
python3 - <<-'END_OF_PROGRAM'
	# cpctl knows better than to map to a companion.
	import fcntl, os, struct
	GATEKEEPER_IOCTL_SET, ADD_MAPPING_OWE_VAP = 8, 12
	record = struct.pack("<III16s16s8x", ADD_MAPPING_OWE_VAP, 0, 0, b"wlan-1-14", b"wlan-2-16")
	fcntl.ioctl(os.open("/dev/CP_dev", os.O_RDWR), GATEKEEPER_IOCTL_SET, record)
END_OF_PROGRAM
step "with it"
expect_success python3 -S "$LAB/lib/port_names.py" "${ports[@]}"
