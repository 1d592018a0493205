# The same names and addresses under different rules: what an interface's garden
# does not permit stays shut there, whoever asked; of two names of one address
# the one that was new last decides, until the rules change; names that hold for
# every interface; the social-login host, which no rule opens.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-3-8 eth0 -- wlan-3-8 /

make_topology 1-1 3-8
start_services
give_address 1-1 61
give_address 3-8 62
load_module
for interface in wlan-1-1 wlan-3-8; do cpctl interface set "$interface" mode on; done

expect_shut() {
	local port=10081
	[[ $1 == 1-1 ]] || port=30088
	expect_portal_page "$1" "$2" "$port"
}
# asks CLIENT NAME ADDRESS
asks() { expect_equal "$2 for client $1" "$3" "$(resolve "$1" "$2")"; }

step "two interfaces, two rules: an answer to either client counts for both interfaces"
cpctl garden replace wlan-1-1 on '*.example.org'
cpctl garden replace wlan-3-8 on 'www.*' other.example.com
asks 3-8 garden.example.org 203.0.113.30
asks 1-1 www.example.net 203.0.113.10
expect_real_page 1-1 http://203.0.113.30/
expect_shut 3-8 http://203.0.113.30/
expect_real_page 3-8 http://203.0.113.10/
expect_shut 1-1 http://203.0.113.10/

step "two names of one address: the one that was new last decides"
asks 1-1 one.example.org 198.51.100.30
expect_real_page 1-1 http://198.51.100.30/
expect_shut 3-8 http://198.51.100.30/
asks 1-1 other.example.com 198.51.100.30
expect_shut 1-1 http://198.51.100.30/
expect_real_page 3-8 http://198.51.100.30/
step "a name that nobody permits changes nothing, nor does one that is known"
asks 1-1 third.example.net 198.51.100.30
asks 1-1 one.example.org 198.51.100.30
expect_listed all "203.0.113.10 3-8: www.example.net" "203.0.113.30 1-1: garden.example.org" \
	"198.51.100.30 3-8: one.example.org other.example.com third.example.net"
expect_shut 1-1 http://198.51.100.30/
step "the rules of one interface, set once more: all names of the address are asked, for this interface"
cpctl garden replace wlan-1-1 on '*.example.org'
expect_real_page 1-1 http://198.51.100.30/
expect_real_page 3-8 http://198.51.100.30/
cpctl garden replace wlan-3-8 on 'www.*'
expect_listed 198.51.100.30 "198.51.100.30 1-1: one.example.org other.example.com third.example.net"
expect_shut 3-8 http://198.51.100.30/

step "names for every interface, which match letter for letter"
cpctl garden replace wlan-1-1 on
cpctl garden replace wlan-3-8 on
expect_listed all
cpctl garden default replace third.example.net Garden.Example.ORG
expect_real_page 1-1 http://198.51.100.30/
expect_real_page 3-8 http://198.51.100.30/
expect_shut 1-1 http://203.0.113.30/
step "they replace each other whole"
cpctl garden default replace garden.example.org
expect_real_page 3-8 http://203.0.113.30/
expect_shut 3-8 http://198.51.100.30/
cpctl garden default replace
expect_listed all

step "every name but the social-login host"
cpctl garden replace wlan-1-1 on '*' social-login.example.com
cpctl garden default replace social-login.example.com
asks 1-1 mail.example.org 198.51.100.10
expect_real_page 1-1 http://198.51.100.10/
answer_with social-login.example.com 198.51.100.20
asks 1-1 social-login.example.com 198.51.100.20
expect_shut 1-1 http://198.51.100.20/
expect_listed 198.51.100.20
