# The page that starts from symptoms: each trouble of docs/troubleshooting.md is
# made, and its commands run on it.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /

make_topology 1-1 1-2
start_services
give_address 1-1 61
give_address 1-2 62
run_page troubleshooting
