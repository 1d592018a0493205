// SPDX-License-Identifier: GPL-2.0-only
// DNS messages, written as a sentence, and what the address cache holds after one, for the tests of the DNS files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "garden/arecord_table.h"
#include "tests/support/cast.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

using Bytes = std::vector<uint8_t>;

// Flags of a successful answer, as a recursive server sends them.
inline constexpr uint16_t answer_flags = 0x8180;

enum DnsType : uint16_t { dns_a = 1, dns_cname = 5, dns_txt = 16, dns_aaaa = 28, dns_opt = 41, dns_https = 65 };

class DnsMessage
{
public:
	DnsMessage &u8(uint32_t value)
	{
		bytes_.push_back(static_cast<uint8_t>(value));
		return *this;
	}
	DnsMessage &u16(uint32_t value) { return u8(value >> 8).u8(value); }
	DnsMessage &u32(uint32_t value) { return u16(value >> 16).u16(value); }
	DnsMessage &raw(std::string_view bytes)
	{
		bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
		return *this;
	}
	DnsMessage &fill(size_t count, uint8_t value)
	{
		bytes_.insert(bytes_.end(), count, value);
		return *this;
	}

	DnsMessage &header(uint16_t answers, uint16_t flags = answer_flags, uint16_t questions = 1)
	{
		return u16(0x1d5e).u16(flags).u16(questions).u16(answers).u16(0).u16(0);
	}

	// One label of these bytes, or of so many equal ones.
	DnsMessage &label(std::string_view bytes) { return u8(static_cast<uint32_t>(bytes.size())).raw(bytes); }
	DnsMessage &label(size_t count, char character) { return label(std::string(count, character)); }
	DnsMessage &labels(std::string_view dotted)
	{
		for (size_t dot = dotted.find('.'); dot != std::string_view::npos; dot = dotted.find('.')) {
			label(dotted.substr(0, dot));
			dotted.remove_prefix(dot + 1);
		}
		return label(dotted);
	}
	DnsMessage &end_of_name() { return u8(0); }
	DnsMessage &name(std::string_view dotted) { return labels(dotted).end_of_name(); }
	DnsMessage &pointer(uint32_t offset) { return u16(0xc000 | offset); }

	// What follows a name in the question, and in a record.
	DnsMessage &question(uint16_t type = dns_a, uint16_t dns_class = 1) { return u16(type).u16(dns_class); }
	DnsMessage &record(uint16_t type, uint32_t ttl, uint16_t data_length)
	{
		return u16(type).u16(1).u32(ttl).u16(data_length);
	}
	DnsMessage &address(uint8_t a, uint8_t b, uint8_t c, uint8_t d) { return u8(a).u8(b).u8(c).u8(d); }
	DnsMessage &a_record(uint32_t ttl, uint8_t a, uint8_t b, uint8_t c, uint8_t d)
	{
		return record(dns_a, ttl, 4).address(a, b, c, d);
	}

	[[nodiscard]] size_t size() const { return bytes_.size(); }
	[[nodiscard]] const Bytes &bytes() const { return bytes_; }
	operator const Bytes &() const { return bytes_; }

private:
	Bytes bytes_;
};

// The start of an answer: header, and an A question for the name.
[[nodiscard]] inline DnsMessage answer_for(std::string_view name, uint16_t answers)
{
	DnsMessage message;
	message.header(answers).name(name).question();
	return message;
}

// A pointer as the host's log prints it.
[[nodiscard]] inline std::string pointer_text(const void *pointer)
{
	char text[32];
	std::snprintf(text, sizeof(text), "%p", pointer);
	return text;
}

// One address of the cache under one of its names.
struct Stored {
	std::string address;
	std::string name;
	uint32_t mask;
	int64_t deadline;

	friend bool operator==(const Stored &, const Stored &) = default;
};

inline std::ostream &operator<<(std::ostream &stream, const Stored &stored)
{
	return stream << stored.address << " " << stored.name << " mask " << stored.mask << " until "
		      << stored.deadline;
}

// All of them, by bucket, and in the order in which they came within one.
[[nodiscard]] inline std::vector<Stored> stored_addresses()
{
	std::vector<Stored> all;
	for (const ArecordBucket &bucket : dns_aRecord) {
		for (const dns_arecord &entry : bucket) {
			std::string address;
			for (uint64_t rest = entry.ip, octet = 0; octet < 4; ++octet, rest >>= 8) {
				address += (octet == 0 ? "" : ".") + std::to_string(rest & 0xff);
			}
			for (const fqdn_node &node : entry.fqdn_list) {
				all.push_back({address, node.fqdn, entry.is_match_wg, entry.timeout});
			}
		}
	}
	return all;
}

} // namespace captive_portal::test
