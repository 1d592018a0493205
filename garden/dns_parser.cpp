// SPDX-License-Identifier: GPL-2.0-only
#include "garden/dns_parser.h"

#include "base/bounded_read.h"
#include "base/debug_level.h"
#include "garden/arecord_cache.h"
#include "garden/dns_name_ends.h"
#include "garden/dns_sections.h"
#include "garden/walled_garden.h"

namespace captive_portal
{

namespace
{

// Offsets of the message header's fields, which lie one behind the other, and its size.
enum HeaderOffset : uint32_t { flags = 2, question_count = 4, answer_count = 6, header_bytes = 12 };

// Offsets of a question's fields from its name's zero byte, and where it ends.
enum QuestionOffset : uint32_t { question_type = 1, question_end = 5 };

// Offsets of a record's fields from the end of its owner name, and where its data begins.
enum RecordOffset : uint32_t { record_type = 0, time_to_live = 4, data_length = 8, record_data = 10 };

constexpr uint16_t response_flag = 0x8000;
constexpr uint16_t rcode_bits = 0x000f;
constexpr uint16_t type_a = 1;

// Longest text of a question's name.
constexpr uint32_t longest_name = DNS_NAME_SIZE - 1;

// One record behind its owner name.
struct Record {
	bool is_a;
	uint16_t data_length;
	uint32_t time_to_live; // seconds
	Ipv4Address address;   // of an A record: first four bytes of the data
};

// Reads the record whose owner name ends at `offset` of the message. False unless its fixed bytes are inside, and, of
// an A record, its address.
[[nodiscard]] bool read_record(const uint8_t *message, uint32_t length, uint32_t offset, Record &record)
{
	const Field<be16> last_fixed_field = field_at<be16>(message, length, offset + data_length);
	if (!last_fixed_field.has_value()) {
		return false;
	}
	const Field<Ipv4Address> address = field_at<Ipv4Address>(message, length, offset + record_data);
	record.is_a = read_unaligned<be16>(message + offset + record_type) == be16::from_host(type_a);
	record.time_to_live = read_unaligned<be32>(message + offset + time_to_live).host();
	record.data_length = last_fixed_field.value().host();
	record.address = address.has_value() ? address.value() : Ipv4Address{};
	return !record.is_a || address.has_value();
}

// Which record of how many.
struct RecordNumber {
	int32_t number;
	int32_t count;
};

// Not inlined, so that its many arguments are not on the stack while the cache works.
[[gnu::noinline]] void log_address(RecordNumber place, uint32_t is_match_wg, const char *question_name,
				   const char *owner, const Record &record)
{
	cp_log(CP_LOG_DEBUG, "(%d/%d, is_match_wg=%d)Qerey: %s, Answer: %s, %pI4, %u mod %d=%d, ttl: %u\n",
	       place.number, place.count, static_cast<int32_t>(is_match_wg), question_name, owner, &record.address,
	       record.address.raw, static_cast<int32_t>(ARECORD_BUCKETS),
	       static_cast<int32_t>(arecord_bucket(record.address)), record.time_to_live);
}

int32_t query_parsing_failed()
{
	if (debug_level_reaches(2)) {
		cp_log(CP_LOG_DEBUG, "dns query parsing failed\n");
	}
	return 0;
}

int32_t answer_parsing_failed()
{
	if (debug_level_reaches(2)) {
		cp_log(CP_LOG_DEBUG, "dns answer parsing failed\n");
	}
	return 0;
}

} // namespace

const uint8_t *read_question_name(char *buff, const uint8_t *query, const uint8_t *end)
{
	if (buff == nullptr || query == nullptr) {
		if (debug_level_reaches(2)) {
			cp_log(CP_LOG_DEBUG, "invalid parameters. (buff = %p, query = %p)\n", buff, query);
		}
		return nullptr;
	}
	__builtin_memset(buff, 0, DNS_NAME_SIZE);
	uint32_t written = 0;
	// Counts what is written until a label does not fit, and keeps every later one out.
	uint32_t length = 0;
	const uint8_t *label = query;
	while (*label != 0) {
		const uint32_t count = *label;
		// The label and the byte behind it.
		if (count + 1 > static_cast<uint32_t>(end - label)) {
			if (debug_level_reaches(3)) {
				cp_log(CP_LOG_DEBUG, "DNS packets might be corrupt or fragmented: %p + %d > %p\n",
				       label + 1, static_cast<int32_t>(count), end);
			}
			return nullptr;
		}
		// One less than there is room for, so that the dot fits too.
		if (length + count > longest_name - 1) {
			length = longest_name;
		} else {
			if (written != 0) {
				buff[written++] = '.';
				++length;
			}
			__builtin_memcpy(buff + written, label + 1, count);
			written += count;
			length += count;
		}
		label += 1 + count;
	}
	return label;
}

bool store_answers(const uint8_t *dns, const char *buff, const uint8_t *answer, const uint8_t *end, uint16_t count,
		   uint32_t is_match_wg)
{
	if (dns == nullptr || buff == nullptr || answer == nullptr) {
		if (debug_level_reaches(2)) {
			cp_log(CP_LOG_DEBUG, "invalid parameters. (dns = %p, buff = %p, answer = %p)\n", dns, buff,
			       answer);
		}
		return false;
	}
	const Text question_name = {buff, __builtin_strlen(buff)};
	const auto length = static_cast<uint32_t>(end - dns) + 1;
	DnsNameEnds ends(dns, end);
	auto start = static_cast<uint32_t>(answer - dns);
	// Cleared by whoever decodes a name, and empty where nobody does.
	char owner[DNS_NAME_SIZE];
	owner[0] = '\0';
	for (uint32_t number = 0; number < count; ++number) {
		uint16_t owner_length = 0;
		// What starts behind the message fails alike, however far behind.
		const uint8_t *const name = dns + (start < length ? start : length);
		// Nothing but log lines needs the text, and a hostile message makes all its texts expensive.
		const uint8_t *const fields =
			debug_level_reaches(2) ? parse_dns_domain(dns, name, end, owner, &owner_length, DNS_NAME_SIZE) :
						 ends.behind(name);
		if (fields == nullptr) {
			if (debug_level_reaches(2)) {
				cp_log(CP_LOG_DEBUG, "_parse_dns_domain() error\n");
			}
			return false;
		}
		const auto fields_start = static_cast<uint32_t>(fields - dns);
		Record record;
		if (!read_record(dns, length, fields_start, record)) {
			return false;
		}
		// An address that is longer than its record's data is not taken.
		if (record.is_a && record.data_length >= sizeof(record.address)) {
			if (debug_level_reaches(3)) {
				log_address({static_cast<int32_t>(number), count}, is_match_wg, buff, owner, record);
			}
			add_dns_arecord(arecord_bucket(record.address), is_match_wg, question_name, record.address,
					record.time_to_live);
		}
		// Deliberately modulo 65536: a record that is longer leads back into itself, never before its start.
		const auto step = static_cast<uint16_t>(fields_start + record_data + record.data_length - start);
		if (step == 0) {
			return false;
		}
		start += step;
	}
	return true;
}

int32_t parse_dns(const uint8_t *message, int32_t length)
{
	if (length <= static_cast<int32_t>(header_bytes)) {
		return -1;
	}
	const auto bytes = static_cast<uint32_t>(length);
	if (read_unaligned<be16>(message + question_count).host() != 1) {
		return 0;
	}
	const uint16_t message_flags = read_unaligned<be16>(message + flags).host();
	const uint8_t *const end = message + bytes - 1;
	char name[DNS_NAME_SIZE];
	const uint8_t *const zero = read_question_name(name, message + header_bytes, end);
	if (zero == nullptr) {
		return query_parsing_failed();
	}
	const auto question = static_cast<uint32_t>(zero - message);
	// The class is not looked at, and may be missing.
	if (!(field_at<be16>(message, bytes, question + question_type) == be16::from_host(type_a))) {
		return 0;
	}
	if ((message_flags & response_flag) == 0) {
		return 0;
	}
	if (const uint32_t rcode = message_flags & rcode_bits) {
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG, "DNS Answer: %s fails with RCODE = %u\n", name, rcode);
		}
		return 0;
	}
	const uint32_t is_match_wg = match_garden_rows({name, __builtin_strlen(name)});
	if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "Get DNS response: %s, is_match_wg=%d\n", name, static_cast<int32_t>(is_match_wg));
	}
	const uint32_t answers = question + question_end < bytes ? question + question_end : bytes;
	if (!store_answers(message, name, message + answers, end, read_unaligned<be16>(message + answer_count).host(),
			   is_match_wg)) {
		return answer_parsing_failed();
	}
	return 0;
}

} // namespace captive_portal
