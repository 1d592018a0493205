# Expected verdict: pass
# Runs after a case that left everything behind.
expect_failure module_is_loaded
expect_failure test -e /sys/class/net/br0
expect_equal "name spaces" "" "$(ip netns list)"
expect_equal "packet rules" "" "$(nft list ruleset)"
expect_failure pgrep nginx
make_topology 1-1
