# Expected verdict: fail, with the text: should get no answer from http://203.0.113.10/
make_topology 1-1
give_address 1-1 61
start_upstream_web
expect_no_connection 1-1 http://203.0.113.10/
