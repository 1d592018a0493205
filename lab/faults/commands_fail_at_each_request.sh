# Every allocation of the slab that a command asks for fails once, and so do
# those of the proc file and of the device's open. What fails says so and changes
# nothing, or what the manual says of missing memory; afterwards the portal works
# as ever. Where the kernel can do that, pages and copies fail as well.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# Requests fail on order.
# Time limit: 900 seconds, of which few are needed.

make_topology 1-1
start_services
give_address 1-1 61
load_module
expect_success python3 "$LAB/lib/failing_commands.py"

step "afterwards"
cpctl interface set wlan-1-1 mode on
expect_portal_page 1-1 http://www.example.net/ 10081
expect_success cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_real_page 1-1 http://www.example.net/
