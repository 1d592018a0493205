# Bridges are deleted and made again, change their addresses and names, lose them, and ports are renamed and moved, all
# while the module is loaded: the next request of a client goes where it should after each. A bridge of another name
# space that has the same names is not touched. Without "br0", or with one that never had an address, the module loads
# as well.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#                                  br1 -- uplink1 -- upstream1
#   elsewhere: client eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_bridges
load_module
cpctl interface set wlan-1-1 mode on
bridge_steps "$BRIDGE_STEPS"
unload_module

step "a br0 that has had no address since the load, and one that is not there"
ip address flush dev br0
load_module
cpctl interface set wlan-1-1 mode on
cat >"$CASE_DIR/without" <<'END_OF_STEPS'
= no address was ever seen: there is nothing to go on with but zeros
client-1-1/eth0: upstream 00:00:00:00:00:00 0.0.0.0:10081
= in br1 as well
ip link set wlan-1-1 master br1
client-1-1/eth0: upstream1 00:00:00:00:00:00 0.0.0.0:10081
ip link del br0
client-1-1/eth0: upstream1 same
ip link add br0 address 02:00:00:00:00:01 type bridge forward_delay 0 mcast_snooping 0
ip address add 192.168.100.1/24 dev br0
= br0 is not even up, and its address counts
client-1-1/eth0: br1 02:00:00:00:00:02 192.168.100.1:10081
END_OF_STEPS
bridge_steps "$CASE_DIR/without"
unload_module
expect_success ip link delete br0
expect_success ip link delete br1
