# A process hands the control device addresses that are nowhere, memory that may
# not be written, numbers out of every range and names without an end: each call
# gives the result of the manual, what is refused changes nothing, and texts
# reach the log as texts.
#
#   no network: the machine alone

load_module
expect_success python3 "$LAB/lib/hostile_records.py"
expect_log 'ADD_LOGIN_MAC gk_cmd.iface=%s%s%s%n%n%n%n%p'
expect_log 'LOGOUT_IP_NOTIFY iface=23 value=%s%s%s%s%s%s%s%s'
expect_success cpctl client add login 02:00:00:00:00:01 wlan-1-1
expect_equal "the list" "02:00:00:00:00:01 dev wlan-1-1 table login" "$(cpctl client show login)"
