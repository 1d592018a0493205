// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/packet_case.h"

#include <cctype>

#include "tests/support/checksum_validator.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"
#include "tests/support/packets.h"

namespace captive_portal::test
{

namespace
{

using host::ChecksumState;
using host::Layout;

enum class Sharing { alone, shared };

struct Variant {
	const char *name;
	Layout layout;
	Sharing sharing;
	ChecksumState checksum;
};

constexpr Variant every_packet[] = {
	{"linear", Layout::linear, Sharing::alone, ChecksumState::finished},
	{"payload elsewhere, data shared", Layout::headers_only, Sharing::shared, ChecksumState::finished},
};

constexpr Variant rewritten_packets[] = {
	{"verified checksum, data shared", Layout::linear, Sharing::shared, ChecksumState::verified},
	{"complete checksum", Layout::headers_only, Sharing::alone, ChecksumState::complete},
	{"partial checksum", Layout::headers_only, Sharing::alone, ChecksumState::partial},
	{"partial checksum, data shared", Layout::linear, Sharing::shared, ChecksumState::partial},
};

void run_variant(host::HookFunction hook, const PacketCase &row, const Variant &variant)
{
	SCOPED_TRACE(row.description + ": " + variant.name);
	host::Machine machine;
	build_access_point(machine);
	load_module(machine);
	if (row.state) {
		row.state(machine);
	}
	machine.log.clear();

	host::PacketBuffer packet = packet_of(row.frame, variant.checksum, variant.layout);
	packet.mark = row.mark_in;
	packet.fail_make_writable = row.fail_make_writable;
	(row.point == HookPoint::pre_routing ? packet.in_name : packet.out_name) = row.device;
	std::optional<host::PacketBuffer> clone;
	if (variant.sharing == Sharing::shared) {
		clone = packet.clone();
	}
	const Frame before = packet.frame();

	EXPECT_EQ(host::run_hook(hook, packet), row.verdict);
	EXPECT_EQ(packet.mark, row.mark);
	EXPECT_EQ(packet.type, row.to_host ? host::PacketType::host : host::PacketType::other_host);
	if (row.frame_out.has_value()) {
		EXPECT_EQ(frame_on_wire(packet), *row.frame_out);
		EXPECT_TRUE(checksums_are_right(packet));
	} else {
		EXPECT_EQ(packet.frame(), before);
	}
	if (clone.has_value()) {
		EXPECT_EQ(clone->frame(), before) << "the rewrite shows in a clone";
	}
	EXPECT_EQ(machine.log.take(), row.log);
	if (row.afterwards) {
		row.afterwards(machine);
	}
	expect_nothing_lost(machine);
}

} // namespace

std::ostream &operator<<(std::ostream &stream, const PacketCase &row)
{
	return stream << row.description;
}

std::string packet_case_name(const ::testing::TestParamInfo<PacketCase> &info)
{
	std::string name;
	bool word_begins = true;
	for (const char character : info.param.description) {
		if (std::isalnum(static_cast<unsigned char>(character)) == 0) {
			word_begins = true;
			continue;
		}
		name += word_begins ? static_cast<char>(std::toupper(static_cast<unsigned char>(character))) :
				      character;
		word_begins = false;
	}
	return name + "_" + std::to_string(info.index);
}

void run_packet_case(host::HookFunction hook, const PacketCase &row)
{
	for (const Variant &variant : every_packet) {
		run_variant(hook, row, variant);
	}
	if (row.frame_out.has_value()) {
		for (const Variant &variant : rewritten_packets) {
			run_variant(hook, row, variant);
		}
	}
}

} // namespace captive_portal::test
