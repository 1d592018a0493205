# Sixteen megabytes down and up through an admitted client arrive whole.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_services
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
cpctl client add login "$(mac_of 1-1)" wlan-1-1

step "down"
wanted=$(sha256sum </run/lab-files/upstream/big)
got=$(fetch 1-1 http://203.0.113.10/big --max-time 120 | sha256sum)
expect_equal "sum of what came down" "$wanted" "$got"

step "up"
expect_success fetch 1-1 http://203.0.113.10/upload/big --max-time 120 -T /run/lab-files/upstream/big
expect_equal "sum of what went up" "$wanted" "$(sha256sum <"$UPLOADS/big")"
rm -f "$UPLOADS/big"
