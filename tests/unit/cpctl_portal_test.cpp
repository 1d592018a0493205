// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/portal.h"

#include <cerrno>

#include "cpctl/failure.h"
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

// The failure that the gateway's question ends in when the device answers `result`.
std::pair<ExitCode, std::string> failure_of(long result)
{
	FakeDevice device;
	device.on(GATEWAY_IOCTL_GET, [result](auto, size_t) { return result; });
	try {
		(void)Portal(device).gateway();
	} catch (const Failure &failure) {
		return {failure.code(), failure.what()};
	}
	return {ExitCode::done, ""};
}

TEST(Portal, JudgesTheResultOfACommand)
{
	using Judgement = std::pair<ExitCode, std::string>;
	EXPECT_EQ(failure_of(0), (Judgement{ExitCode::done, ""}));
	EXPECT_EQ(failure_of(-EPERM), (Judgement{ExitCode::refused, "command 7 of the control device: refused: is this "
								    "program as new as the module?"}));
	EXPECT_EQ(failure_of(-EINVAL),
		  (Judgement{ExitCode::refused, "command 7 of the control device: refused: more rules "
						"than a record holds"}));
	EXPECT_EQ(failure_of(-ENOMEM),
		  (Judgement{ExitCode::refused, "command 7 of the control device: the kernel has no "
						"memory for it now; nothing was changed"}));
	EXPECT_EQ(failure_of(3),
		  (Judgement{ExitCode::refused, "command 7 of the control device: 3 bytes of the reply did "
						"not arrive"}));
	EXPECT_EQ(failure_of(-EIO),
		  (Judgement{ExitCode::refused, "command 7 of the control device: Input/output error"}));
	EXPECT_EQ(failure_of(-ENOTTY),
		  (Judgement{ExitCode::unavailable, "command 7 of the control device: not understood: "
						    "is this the module's device? See -d"}));
}

TEST(Portal, AsksForAStatusWithTheModulesRecord)
{
	FakeDevice device;
	device.on(CAPTIVE_PORTAL_IOCTL_GET, [](auto record, size_t) {
		put32(record, 8, 5220);
		put32(record, 12, 7);
		return 0;
	});
	const auto status = Portal(device).status(8);
	ASSERT_TRUE(status.has_value());
	EXPECT_EQ(status->mark, 5220U);
	EXPECT_EQ(status->cp_mode, 7U);
	ASSERT_EQ(device.calls.size(), 1U);
	EXPECT_EQ(device.calls.at(0).hex(), joined("02000000", "08000000", "ffffffff", zeros(308)));
}

TEST(Portal, TellsTheFileLayersBlockSizeFromAStatus)
{
	FakeDevice device;
	device.on(CAPTIVE_PORTAL_IOCTL_GET, [](auto record, size_t) {
		put32(record, 0, 4096);
		return 0;
	});
	EXPECT_FALSE(Portal(device).status(0).has_value());
}

TEST(Portal, TellsAFileLayerWithoutABlockSizeFromARefusal)
{
	FakeDevice device;
	device.on(CAPTIVE_PORTAL_IOCTL_GET, [](auto, size_t) { return -EINVAL; });
	EXPECT_FALSE(Portal(device).status(0).has_value());
}

TEST(Portal, RefusesAStatusThatTheModuleDidNotFill)
{
	FakeDevice device;
	EXPECT_THROW((void)Portal(device).status(0), Failure);
}

TEST(Portal, TellsAnEmptyListFromNoAnswer)
{
	const ClientTable &white = find_client_table("white");
	FakeDevice device;
	EXPECT_THROW((void)Portal(device).clients(white, "wlan-1-1"), Failure);

	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t) {
		put32(record, 44, 0);
		return 0;
	});
	const ClientList list = Portal(device).clients(white, "wlan-1-1");
	EXPECT_TRUE(list.clients.empty());
	EXPECT_TRUE(list.complete);
}

TEST(Portal, KnowsThatAFullReplyMayNotBeTheWholeList)
{
	const ClientTable &auth = find_client_table("auth");
	FakeDevice device;
	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t) {
		put_clients(record, std::vector<uint8_t>(1034, 0x01));
		return 0;
	});
	Portal portal(device);
	EXPECT_EQ(portal.clients(auth, "wlan-1-1").clients.size(), 1034U);
	EXPECT_FALSE(portal.clients(auth, "wlan-1-1").complete);
	EXPECT_EQ(portal.presence(auth, {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01}, "wlan-1-1"), Presence::listed);
	EXPECT_EQ(portal.presence(auth, {0x02, 0x00, 0x5e, 0x10, 0x00, 0x02}, "wlan-1-1"), Presence::unknown);
}

TEST(Portal, DoesNotTrustACountAboveTheSlots)
{
	FakeDevice device;
	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t) {
		put32(record, 44, 1035);
		return 0;
	});
	EXPECT_THROW((void)Portal(device).clients(find_client_table("white"), "wlan-1-1"), Failure);
}

TEST(Portal, DoesNotTrustARuleNumberAboveTheSlots)
{
	FakeDevice device;
	device.on(WALLED_GARDEN_IOCTL_GET, [](auto record, size_t) {
		put32(record, 12, 25);
		return 0;
	});
	EXPECT_THROW((void)Portal(device).garden(0), Failure);
	EXPECT_THROW((void)Portal(device).default_rules(), Failure);
}

TEST(Portal, RefusesAGardenThatTheModuleDidNotFill)
{
	FakeDevice device;
	EXPECT_THROW((void)Portal(device).garden(0), Failure);
}

} // namespace

} // namespace cpctl::test
