# The administrator's guide: the commands of docs/guide.md, and what it says
# comes of them.
#
#   client-1-1  eth0 -- wlan-1-1  \
#                                  br0 -- uplink0 -- upstream
#   client-1-14 eth0 -- wlan-1-14 /

make_topology 1-1 1-14
start_services
give_address 1-1 61
give_address 1-14 62
load_module
run_page guide
