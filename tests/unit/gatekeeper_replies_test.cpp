// SPDX-License-Identifier: GPL-2.0-only
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gatekeeper/gatekeeper_commands.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

constexpr Mac station(uint8_t last)
{
	return {0x02, 0, 0, 0, 0, last};
}

constexpr uint8_t filler = 0x5a;

class GatekeeperReplies : public HostTest
{
protected:
	void SetUp() override { load_module(); }

	// A request in a record whose other bytes are all fillers.
	[[nodiscard]] static std::unique_ptr<gk_list_reply> request(uint32_t number, std::string_view iface,
								    std::string_view owe_iface = "")
	{
		auto record = std::make_unique<gk_list_reply>();
		std::memset(record.get(), filler, sizeof(*record));
		record->cmd = number;
		set_text(record->iface, iface);
		set_text(record->owe_iface, owe_iface);
		return record;
	}

	[[nodiscard]] static gk_check_reply check_request(uint32_t number, std::string_view iface, const Mac &mac)
	{
		gk_check_reply record;
		std::memset(&record, filler, sizeof(record));
		record.cmd = number;
		set_text(record.iface, iface);
		std::memcpy(record.mac, mac.data(), mac.size());
		return record;
	}

	[[nodiscard]] uint32_t found(uint32_t number, std::string_view iface, const Mac &mac)
	{
		gk_check_reply record = check_request(number, iface, mac);
		EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_CHECK, record), 0);
		return record.found;
	}
};

// Byte `offset` of a record.
template <typename T> uint8_t byte_of(const T &record, size_t offset)
{
	uint8_t byte = 0;
	std::memcpy(&byte, reinterpret_cast<const char *>(&record) + offset, 1);
	return byte;
}

struct ListRow {
	const char *name;
	gk_set_command add;
	uint32_t get;
	bool per_interface;
};

std::ostream &operator<<(std::ostream &stream, const ListRow &row)
{
	return stream << row.name;
}

class EveryListReply : public GatekeeperReplies, public ::testing::WithParamInterface<ListRow>
{
};

INSTANTIATE_TEST_SUITE_P(Lists, EveryListReply,
			 ::testing::Values(ListRow{"white_list", ADD_WHITELIST_MAC, 6, true},
					   ListRow{"auth_mac_table", ADD_AUTH_MAC, 7, true},
					   ListRow{"login_mac_table", ADD_LOGIN_MAC, 8, true},
					   ListRow{"mirel_black_list", ADD_MIREL_BLACK_LIST_MAC, 20, false},
					   ListRow{"mirel_white_list", ADD_MIREL_WHITE_LIST_MAC, 21, false},
					   ListRow{"ga_white_list", ADD_GA_WHITELIST_MAC, 28, true},
					   ListRow{"mac_auth_fallback", ADD_MAC_AUTH_FALLBACK, 33, true}),
			 [](const auto &info) { return std::string(info.param.name); });

TEST_P(EveryListReply, GivesTheAddressesInTheOrderOfAddingAndNothingElse)
{
	change_clients(machine, GetParam().add, "wlan-2-3", station(7));
	change_clients(machine, GetParam().add, "wlan-2-3", station(5));
	change_clients(machine, GetParam().add, "wlan-2-3", station(7));

	const auto sent = request(GetParam().get, "wlan-2-3", "owe as sent");
	auto expected = std::make_unique<gk_list_reply>(*sent);
	expected->count = 3;
	const uint8_t last[] = {7, 5, 7};
	for (int slot = 0; slot < 3; ++slot) {
		const uint8_t mac[] = {0x02, 0, 0, 0, 0, last[slot]};
		std::memcpy(expected->entries[slot].mac, mac, sizeof(mac));
	}
	const uint64_t holds = machine.mutexes.acquisitions(CP_MUTEX_CLIENTS);
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, *sent), 0);
	EXPECT_EQ(std::memcmp(sent.get(), expected.get(), sizeof(*sent)), 0);
	EXPECT_EQ(machine.mutexes.acquisitions(CP_MUTEX_CLIENTS) - holds, 1U);
	EXPECT_NO_LOG();
}

TEST_P(EveryListReply, GivesCountZeroAndTheSlotsAsSentForAnEmptyList)
{
	const auto record = request(GetParam().get, "wlan-2-3");
	get_gatekeeper_list(*record);
	EXPECT_EQ(record->count, 0U);
	for (size_t offset = 48; offset < 16592; ++offset) {
		ASSERT_EQ(byte_of(*record, offset), filler) << offset;
	}
}

TEST_P(EveryListReply, LooksAtTheInterfaceOnlyIfTheListHasOne)
{
	change_clients(machine, GetParam().add, "wlan-2-3", station(7));
	const auto other = request(GetParam().get, "wlan-2-4");
	get_gatekeeper_list(*other);
	EXPECT_EQ(other->count, GetParam().per_interface ? 0U : 1U);

	const auto sent = request(GetParam().get, "wlan-4-1");
	const auto record = std::make_unique<gk_list_reply>(*sent);
	get_gatekeeper_list(*record);
	if (GetParam().per_interface) {
		EXPECT_EQ(std::memcmp(record.get(), sent.get(), sizeof(*sent)), 0);
	} else {
		EXPECT_EQ(record->count, 1U);
	}
	EXPECT_NO_LOG();
}

TEST_P(EveryListReply, EndsAtTheLastOf1034Slots)
{
	for (int i = 0; i < 1036; ++i) {
		change_clients(machine, GetParam().add, "wlan-2-3",
			       {0x02, 0, 0, 0, static_cast<uint8_t>(i / 256), static_cast<uint8_t>(i % 256)});
	}
	const auto record = request(GetParam().get, "wlan-2-3");
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, *record), 0);
	EXPECT_EQ(record->count, 1034U);
	// Entry 1033 is 4 * 256 + 9; its address lies at 48 + 16 * 1033 + 8, two bytes before the record's end.
	EXPECT_EQ(byte_of(*record, 16588), 0x04);
	EXPECT_EQ(byte_of(*record, 16589), 0x09);
	EXPECT_EQ(byte_of(*record, 16590), filler);
	EXPECT_EQ(byte_of(*record, 16591), filler);
}

TEST_F(GatekeeperReplies, BehaviorAndStatusAreZeroAfterStart)
{
	const auto record = request(GET_OVRA_BEHAVIOR, "wlan-1-1");
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, *record), 0);
	EXPECT_EQ(record->behavior, 0U);
	EXPECT_EQ(record->status, 0U);
}

TEST_F(GatekeeperReplies, GivesTheBehaviorOfItsRowAndDoesNotWriteTheCount)
{
	set_behavior(machine, "wlan-3-8", 2, 7);
	const auto sent = request(GET_OVRA_BEHAVIOR, "wlan-3-8");
	const auto record = std::make_unique<gk_list_reply>(*sent);
	const uint64_t holds = machine.locks.acquisitions(CP_LOCK_GATEKEEPER);
	get_gatekeeper_list(*record);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEKEEPER) - holds, 1U);
	EXPECT_EQ(record->behavior, 2U);
	EXPECT_EQ(record->status, 7U);
	EXPECT_EQ(record->count, 0x5a5a5a5aU);
	record->behavior = sent->behavior;
	record->status = sent->status;
	EXPECT_EQ(std::memcmp(record.get(), sent.get(), sizeof(*sent)), 0);
}

TEST_F(GatekeeperReplies, AnOweInterfaceIsPairedWithNoneAfterStart)
{
	const auto record = request(GET_MAPPING_OWE_VAP, "xxxxxxxxxxxxxxxx", "wlan-1-14");
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, *record), 0);
	EXPECT_EQ(std::string(record->iface, 16), std::string("\0xxxxxxxxxxxxxxx", 16));
}

TEST_F(GatekeeperReplies, WritesThePairedNameAndItsNulUnderTheLock)
{
	map_owe_interface(machine, "wlan-2-15", "wlan-1-2");
	const auto sent = request(GET_MAPPING_OWE_VAP, "xxxxxxxxxxxxxxxx", "wlan-2-15");
	const auto record = std::make_unique<gk_list_reply>(*sent);
	const uint64_t holds = machine.locks.acquisitions(CP_LOCK_GATEKEEPER);
	get_gatekeeper_list(*record);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEKEEPER) - holds, 1U);
	EXPECT_EQ(std::string(record->iface, 16), std::string("wlan-1-2\0xxxxxxx", 16));
	std::memcpy(record->iface, sent->iface, sizeof(record->iface));
	EXPECT_EQ(std::memcmp(record.get(), sent.get(), sizeof(*sent)), 0);
}

TEST_F(GatekeeperReplies, GivesFifteenCharactersOfANameThatCameWithoutNul)
{
	map_owe_interface(machine, "wlan-2-15", "abcdefghijklmnop");
	const auto record = request(GET_MAPPING_OWE_VAP, "xxxxxxxxxxxxxxxx", "wlan-2-15");
	get_gatekeeper_list(*record);
	EXPECT_EQ(std::string(record->iface, 16), std::string("abcdefghijklmno\0", 16));
}

TEST_F(GatekeeperReplies, TheOweRowIsChosenByItsCombinedIndex)
{
	map_owe_interface(machine, "wlan-2-14", "wlan-1-2");
	const auto record = request(GET_MAPPING_OWE_VAP, "", "wlan-1-17");
	get_gatekeeper_list(*record);
	EXPECT_STREQ(record->iface, "wlan-1-2");
}

TEST_F(GatekeeperReplies, UnknownNumbersAndRowsComeBackAsSent)
{
	change_clients(machine, ADD_WHITELIST_MAC, "wlan-1-1", station(1));
	const auto expect_as_sent = [this](uint32_t number, std::string_view iface, std::string_view owe_iface) {
		const auto sent = request(number, iface, owe_iface);
		const auto record = std::make_unique<gk_list_reply>(*sent);
		EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, *record), 0) << number;
		EXPECT_EQ(std::memcmp(record.get(), sent.get(), sizeof(*sent)), 0) << number;
	};
	for (const uint32_t number : {0U,  1U,  2U,  3U,  4U,  5U,  9U,  10U, 12U, 13U, 15U, 16U, 17U, 18U,
				      19U, 22U, 23U, 24U, 25U, 26U, 27U, 29U, 30U, 31U, 32U, 34U, 35U, 0xffffffffU}) {
		expect_as_sent(number, "wlan-1-1", "wlan-1-14");
	}
	for (const uint32_t number : {6U, 7U, 8U, 11U, 28U, 33U}) {
		expect_as_sent(number, "wlan-4-1", "wlan-1-14");
		expect_as_sent(number, "all", "wlan-1-14");
		expect_as_sent(number, "", "wlan-1-14");
	}
	for (const char *owe_iface : {"wlan-1-13", "wlan-4-14", "wlan-1-1", ""}) {
		expect_as_sent(GET_MAPPING_OWE_VAP, "wlan-1-1", owe_iface);
	}
	EXPECT_NO_LOG();
}

struct CheckRow {
	uint32_t number;
	gk_set_command add;
};

class EveryCheck : public GatekeeperReplies, public ::testing::WithParamInterface<CheckRow>
{
};

INSTANTIATE_TEST_SUITE_P(Checks, EveryCheck,
			 ::testing::Values(CheckRow{18, ADD_WHITELIST_MAC}, CheckRow{19, ADD_LOGIN_MAC},
					   CheckRow{29, ADD_GA_WHITELIST_MAC}, CheckRow{35, ADD_MAC_AUTH_FALLBACK}));

TEST_P(EveryCheck, FindsAnAddressInItsOwnListAndRowOnly)
{
	const uint32_t number = GetParam().number;
	EXPECT_EQ(found(number, "wlan-1-1", station(1)), 0U);
	for (const gk_set_command add :
	     {ADD_WHITELIST_MAC, ADD_AUTH_MAC, ADD_LOGIN_MAC, ADD_GA_WHITELIST_MAC, ADD_MAC_AUTH_FALLBACK}) {
		if (add != GetParam().add) {
			change_clients(machine, add, "wlan-1-1", station(1));
		}
	}
	EXPECT_EQ(found(number, "wlan-1-1", station(1)), 0U);
	change_clients(machine, GetParam().add, "wlan-1-1", station(2));
	change_clients(machine, GetParam().add, "wlan-1-1", station(1));
	change_clients(machine, GetParam().add, "wlan-1-1", station(1));
	EXPECT_EQ(found(number, "wlan-1-1", station(1)), 1U);
	EXPECT_EQ(found(number, "wlan-1-1", station(3)), 0U);
	EXPECT_EQ(found(number, "wlan-1-2", station(1)), 0U);
	EXPECT_NO_LOG();
}

TEST_P(EveryCheck, WritesFoundAloneInOneHold)
{
	change_clients(machine, GetParam().add, "wlan-1-1", station(1));
	const gk_check_reply sent = check_request(GetParam().number, "wlan-1-1", station(1));
	gk_check_reply record = sent;
	const uint64_t holds = machine.mutexes.acquisitions(CP_MUTEX_CLIENTS);
	check_gatekeeper_list(record);
	EXPECT_EQ(machine.mutexes.acquisitions(CP_MUTEX_CLIENTS) - holds, 1U);
	EXPECT_EQ(record.found, 1U);
	EXPECT_EQ(std::memcmp(&record, &sent, 28), 0);
}

TEST_P(EveryCheck, SetsFoundToZeroForAnInterfaceThatDoesNotExist)
{
	change_clients(machine, GetParam().add, "wlan-1-1", station(1));
	for (const char *iface : {"wlan-4-1", "all", "", "wlan-1-0"}) {
		EXPECT_EQ(found(GetParam().number, iface, station(1)), 0U) << iface;
	}
	EXPECT_NO_LOG();
}

TEST_F(GatekeeperReplies, ACheckThatIsNotAssignedSetsFoundToZero)
{
	change_clients(machine, ADD_WHITELIST_MAC, "wlan-1-1", station(1));
	for (const uint32_t number : {0U, 6U, 17U, 20U, 28U, 30U, 34U, 36U, 0xffffffffU}) {
		EXPECT_EQ(found(number, "wlan-1-1", station(1)), 0U) << number;
	}
	EXPECT_NO_LOG();
}

} // namespace

} // namespace captive_portal::test
