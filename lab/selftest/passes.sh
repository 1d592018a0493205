# Expected verdict: pass
make_topology 1-1
give_address 1-1 61
load_module
expect_ping 1-1 "$AP_ADDRESS"
