# Expected verdict: fail, with the text: client 1-1 got no page from http://203.0.113.10/
make_topology 1-1
give_address 1-1 61
FETCH_SECONDS=2
expect_real_page 1-1 http://203.0.113.10/
