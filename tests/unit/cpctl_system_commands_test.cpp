// SPDX-License-Identifier: GPL-2.0-only
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

class CpctlSystem : public CpctlTest
{
};

TEST_F(CpctlSystem, GatewaySetSendsTheAddressInNetworkOrder)
{
	device.on(GATEWAY_IOCTL_GET, [](auto record, size_t) {
		put32(record, 0, 0xfe0200c0);
		return 0;
	});
	EXPECT_EQ(run({"gateway", "set", "192.0.2.254"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{6, 7}));
	EXPECT_EQ(device.calls.at(0).hex(), "c00002fe");
	EXPECT_EQ(run({"gateway", "set", "192.0.2.1"}), 2);
	EXPECT_EQ(err, "cpctl: the gateway is 192.0.2.254 though the module took the command\n");
	expect_usage_failure({"gateway", "set", "192.0.2"}, "no IPv4 address");
}

TEST_F(CpctlSystem, GatewaySetNoneClearsIt)
{
	EXPECT_EQ(run({"gateway", "set", "none"}), 0);
	EXPECT_EQ(device.calls.at(0).hex(), "00000000");
}

TEST_F(CpctlSystem, GatewayShow)
{
	EXPECT_EQ(run({"gateway", "show"}), 0);
	EXPECT_EQ(out, "gateway none\n");
	device.on(GATEWAY_IOCTL_GET, [](auto record, size_t) {
		put32(record, 0, 0xfe0200c0);
		return 0;
	});
	EXPECT_EQ(run({"gateway", "show"}), 0);
	EXPECT_EQ(out, "gateway 192.0.2.254\n");
}

constexpr std::string_view not_what_was_set =
	" is not what was set though the module took the command: see the kernel log (dmesg)\n";

TEST_F(CpctlSystem, DnsFilter)
{
	status_files["status"] = "module format=1 dns_filter=1\n";
	EXPECT_EQ(run({"dns-filter", "on"}), 0);
	EXPECT_EQ(err, "");
	ASSERT_EQ(device.commands(), (std::vector{1}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("09000000", "00000000", "01000000", zeros(16)));
	status_files["status"] = "module format=1 dns_filter=0\n";
	EXPECT_EQ(run({"dns-filter", "off"}), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(device.calls.at(0).hex(), joined("09000000", "00000000", "00000000", zeros(16)));
	expect_usage_failure({"dns-filter", "maybe"}, "'maybe' is no switch");
}

TEST_F(CpctlSystem, MirelMode)
{
	status_files["status"] = "module format=1\ninterface index=27 mode=1\n";
	EXPECT_EQ(run({"mirel", "mode", "on"}), 0);
	EXPECT_EQ(err, "");
	ASSERT_EQ(device.commands(), (std::vector{1}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("07000000", "1b000000", "01000000", zeros(16)));
	expect_usage_failure({"mirel", "mode", "loud"}, "'loud' is no mode");
}

TEST_F(CpctlSystem, DebugPassesTheLevelItself)
{
	status_files["status"] = "module format=1 debug_level=3\n";
	EXPECT_EQ(run({"debug", "3"}), 0);
	EXPECT_EQ(err, "");
	ASSERT_EQ(device.commands(), (std::vector{11}));
	EXPECT_EQ(device.calls.at(0).value, 3U);
	expect_usage_failure({"debug", "4"}, "the highest is 3");
	expect_usage_failure({"debug", "-1"}, "no debug level");
	expect_usage_failure({"debug", "high"}, "no debug level");
}

TEST_F(CpctlSystem, WhatTheModuleDroppedIsFoundInTheStatusFile)
{
	status_files["status"] =
		"module format=1 debug_level=1 dns_filter=0\ninterface index=0 mode=1\ninterface index=27 mode=0\n";
	EXPECT_EQ(run({"dns-filter", "on"}), 2);
	EXPECT_EQ(err, joined("cpctl: dns-filter", not_what_was_set));
	EXPECT_EQ(run({"mirel", "mode", "on"}), 2);
	EXPECT_EQ(err, joined("cpctl: mirel: mode", not_what_was_set));
	EXPECT_EQ(run({"debug", "2"}), 2);
	EXPECT_EQ(err, joined("cpctl: debug", not_what_was_set));
}

TEST_F(CpctlSystem, SaysWhenTheStatusFileCannotBeRead)
{
	EXPECT_EQ(run({"dns-filter", "on"}), 0);
	EXPECT_EQ(err, "cpctl: dns-filter could not be verified: status: permission denied\n");
	EXPECT_EQ(run({"mirel", "mode", "on"}), 0);
	EXPECT_EQ(err, "cpctl: mirel: mode could not be verified: status: permission denied\n");
	EXPECT_EQ(run({"debug", "2"}), 0);
	EXPECT_EQ(err, "cpctl: debug could not be verified: status: permission denied\n");
}

} // namespace

} // namespace cpctl::test
