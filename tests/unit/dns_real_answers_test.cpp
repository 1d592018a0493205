// SPDX-License-Identifier: GPL-2.0-only
// Answers of real servers, whole, cut at every byte, and with every byte changed. They lie beside the fuzzers, where
// collect_answers says how they were made.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/unit/dns_parser_fixture.h"

namespace captive_portal::test
{

namespace
{

// What `expected` says of an answer: its length, the name that was asked for, and its addresses with their seconds.
struct RealAnswer {
	std::string file;
	size_t bytes;
	std::string name;
	std::vector<std::pair<std::string, int64_t>> addresses;
};

const std::string a63(63, 'a');
const std::string b63(63, 'b');

const RealAnswer answers[] = {
	{"plain", 47, "plain.example", {{"192.0.2.10", 120}}},
	{"plain-edns", 58, "plain.example", {{"192.0.2.10", 120}}},
	{"wildcard", 55, "any.host.wild.example", {{"192.0.2.20", 300}}},
	{"alias", 72, "www.example", {{"192.0.2.10", 120}}},
	{"alias-chain", 109, "shop.example", {{"192.0.2.10", 120}}},
	{"mixed-case", 47, "PlAiN.eXaMpLe", {{"192.0.2.10", 120}}},
	{"no-time-to-live", 51, "unlasting.example", {{"10.7.0.1", 0}}},
	{"no-such-name", 44, "nowhere.example", {}},
	{"no-data", 30, "text.example", {}},
	{"ipv6-address", 69, "dual.example", {}},
	{"text", 54, "text.example", {}},
	{"https", 71, "svc.example", {}},
	{"unbound-plain", 58, "plain.example", {{"192.0.2.110", 3600}}},
	{"unbound-two-addresses", 61, "two.example", {{"192.0.2.111", 30}, {"192.0.2.112", 30}}},
	{"unbound-long-name", 180, a63 + "." + b63, {{"192.0.2.113", 5}}},
	{"unbound-forever", 49, "forever.example", {{"192.0.2.114", 2147483647}}},
	{"unbound-no-such-name", 33, "nowhere.example", {}},
	{"unbound-refused", 30, "version.bind", {}},
};

Bytes bytes_of(const std::string &file)
{
	std::ifstream stream(std::string(DNS_ANSWERS) + "/" + file, std::ios::binary);
	EXPECT_TRUE(stream) << file;
	return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<Stored> sorted(std::vector<Stored> all)
{
	std::sort(all.begin(), all.end(), [](const Stored &a, const Stored &b) { return a.address < b.address; });
	return all;
}

class RealAnswersTest : public DnsParserFixture
{
protected:
	RealAnswersTest() { machine.log.keep(false); }
};

} // namespace

TEST_F(RealAnswersTest, GiveTheirAddresses)
{
	for (const RealAnswer &answer : answers) {
		SCOPED_TRACE(answer.file);
		const Bytes bytes = bytes_of(answer.file);
		ASSERT_EQ(bytes.size(), answer.bytes);
		EXPECT_EQ(parse(bytes), 0);
		std::vector<Stored> expected;
		for (const auto &[address, seconds] : answer.addresses) {
			expected.push_back({address, answer.name, 0, start_time + seconds});
		}
		EXPECT_EQ(sorted(stored_addresses()), expected);
		forget();
	}
}

// 85 addresses, 198.51.100.1 to 85, in 1,401 bytes; and the 30 of them that fit an answer of 512.
TEST_F(RealAnswersTest, GiveManyAddresses)
{
	for (const auto &[file, bytes, addresses] :
	     {std::tuple("many-addresses", 1401u, 85u), std::tuple("many-addresses-truncated", 510u, 30u)}) {
		const Bytes message = bytes_of(file);
		ASSERT_EQ(message.size(), bytes);
		EXPECT_EQ(parse(message), 0);
		const std::vector<Stored> all = stored_addresses();
		EXPECT_EQ(all.size(), addresses);
		for (const Stored &stored : all) {
			EXPECT_TRUE(stored.address.starts_with("198.51.100."));
			EXPECT_EQ(stored.name, "many.example");
			EXPECT_EQ(stored.deadline, start_time + 300);
		}
		forget();
	}
}

// Every answer, cut anywhere, gives the first of its addresses that are whole. The number is that of the addresses
// which are left when the last byte is missing: in an answer with an EDNS record, all.
TEST_F(RealAnswersTest, GiveNoMoreWhenTheyAreCut)
{
	const std::pair<const char *, size_t> rows[] = {
		{"plain", 0},
		{"plain-edns", 1},
		{"alias-chain", 1},
		{"ipv6-address", 0},
		{"unbound-two-addresses", 1},
		{"unbound-long-name", 1},
		{"many-addresses", 85},
		{"no-such-name", 0},
		{"https", 0},
	};
	for (const auto &[file, left] : rows) {
		SCOPED_TRACE(file);
		const Bytes whole = bytes_of(file);
		EXPECT_EQ(parse(whole), 0);
		const std::vector<Stored> all = sorted(stored_addresses());
		forget();
		size_t before = 0;
		for (size_t length = 0; length < whole.size(); ++length) {
			const auto end = whole.begin() + static_cast<ptrdiff_t>(length);
			EXPECT_EQ(parse(Bytes(whole.begin(), end)), length <= 12 ? -1 : 0);
			for (const Stored &stored : stored_addresses()) {
				EXPECT_NE(std::find(all.begin(), all.end(), stored), all.end()) << length;
			}
			const size_t now = stored_addresses().size();
			EXPECT_GE(now, before) << length;
			before = now;
			forget();
		}
		EXPECT_EQ(before, left);
	}
}

TEST_F(RealAnswersTest, DoNoHarmWhenAByteIsChanged)
{
	for (const char *const file : {"alias-chain", "unbound-two-addresses", "https"}) {
		const Bytes whole = bytes_of(file);
		for (size_t place = 0; place < whole.size(); ++place) {
			for (unsigned value = 0; value < 256; ++value) {
				Bytes changed = whole;
				changed[place] = static_cast<uint8_t>(value);
				EXPECT_EQ(parse(changed), 0);
				// Both counts are below 256 unless their high byte was changed.
				const size_t count = changed[6] * 256u + changed[7];
				EXPECT_LE(stored_addresses().size(), count);
				forget();
			}
		}
	}
}

} // namespace captive_portal::test
