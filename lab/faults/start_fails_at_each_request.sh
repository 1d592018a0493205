# Every request of a load for an object of the slab, for pages, or for a copy
# fails once: the kernel's own, on behalf of the module, and the module's. A load
# that fails leaves nothing, one that succeeds all the same unloads like any
# other, and the next load is as good as ever.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# Requests fail on order.
# Time limit: 3600 seconds, for the slowest of machines.

make_topology 1-1
start_services
give_address 1-1 61
expect_failures 300 python3 "$LAB/lib/failing_start.py" "$MODULE"
# The module's own requests were among them.
expect_log 'nf_register_hook fail'
expect_log '[captive portal] captive_portal_misc_dev failed!!'

step "afterwards"
load_module
cpctl interface set wlan-1-1 mode on
expect_portal_page 1-1 http://www.example.net/ 10081
expect_success cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_real_page 1-1 http://www.example.net/
unload_module
expect_failure test -e /dev/CP_dev
expect_failure test -e /proc/cp_dns_aRecord
