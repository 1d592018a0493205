# Expected verdict: pass
make_topology 1-1 lan0
add_client_behind 1-1 second
give_address 1-1 61
give_address second 62
start_services
load_module
nft add table bridge left
start_capture left 1-1 eth0
expect_real_page second http://www.example.net/
expect_portal_page 1-1 "http://$AP_ADDRESS:10081/" 10081
expect_captured left "ether src $(mac_of second)"
