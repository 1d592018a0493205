// SPDX-License-Identifier: GPL-2.0-only
// A DNS message as ldns reads it, with the one thing that ldns does not tell: where a name's pointers stand.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <ldns/ldns.h>

#include "tests/unit/dns_messages.h"

namespace captive_portal::test
{

struct LdnsDeleter {
	void operator()(ldns_pkt *packet) const { ldns_pkt_free(packet); }
	void operator()(ldns_rr *record) const { ldns_rr_free(record); }
	void operator()(ldns_rdf *data) const { ldns_rdf_deep_free(data); }
	void operator()(char *text) const { LDNS_FREE(text); }
};
template <typename Type> using Ldns = std::unique_ptr<Type, LdnsDeleter>;

using Labels = std::vector<std::string>;

// A name as it is encoded: the labels that stand together, then those that the pointer behind them leads to, and so on.
using Pieces = std::vector<Labels>;

struct Record {
	Ldns<ldns_rr> rr;
	ldns_pkt_section section;
	Pieces owner;
};

struct Reading {
	std::vector<Record> questions;
	std::vector<Record> records;
	// Nothing is left unread, and ldns has no objection.
	bool whole = false;
};

// The labels in the first `bytes` bytes of the name.
[[nodiscard]] inline Labels labels_of(const ldns_rdf &name, size_t bytes)
{
	const uint8_t *const data = ldns_rdf_data(&name);
	Labels labels;
	for (size_t place = 0; place < bytes && data[place] != 0; place += 1u + data[place]) {
		labels.emplace_back(data + place + 1, data + place + 1 + data[place]);
	}
	return labels;
}

// Where the decoded name is not as long as the encoded one, the latter ends in a pointer.
[[nodiscard]] inline Pieces pieces_of(const Bytes &message, size_t start)
{
	Pieces pieces;
	while (true) {
		size_t behind = start;
		ldns_rdf *read = nullptr;
		EXPECT_EQ(ldns_wire2dname(&read, message.data(), message.size(), &behind), LDNS_STATUS_OK);
		const Ldns<ldns_rdf> name(read);
		if (behind - start == ldns_rdf_size(name.get())) {
			pieces.push_back(labels_of(*name, ldns_rdf_size(name.get())));
			return pieces;
		}
		pieces.push_back(labels_of(*name, behind - start - 2));
		start = (message[behind - 2] * 256u + message[behind - 1]) & 0x3fff;
	}
}

// Record by record, as far as ldns gets.
[[nodiscard]] inline Reading read_records(const Bytes &message)
{
	Reading reading;
	if (message.size() < LDNS_HEADER_SIZE) {
		return reading;
	}
	const uint8_t *const wire = message.data();
	size_t place = LDNS_HEADER_SIZE;
	const std::pair<ldns_pkt_section, size_t> sections[] = {
		{LDNS_SECTION_QUESTION, LDNS_QDCOUNT(wire)},
		{LDNS_SECTION_ANSWER, LDNS_ANCOUNT(wire)},
		{LDNS_SECTION_AUTHORITY, LDNS_NSCOUNT(wire)},
		{LDNS_SECTION_ADDITIONAL, LDNS_ARCOUNT(wire)},
	};
	for (const auto &[section, count] : sections) {
		for (size_t number = 0; number < count; ++number) {
			const size_t start = place;
			ldns_rr *read = nullptr;
			if (ldns_wire2rr(&read, wire, message.size(), &place, section) != LDNS_STATUS_OK) {
				return reading;
			}
			std::vector<Record> &list =
				section == LDNS_SECTION_QUESTION ? reading.questions : reading.records;
			list.push_back({Ldns<ldns_rr>(read), section, pieces_of(message, start)});
		}
	}
	reading.whole = place == message.size();
	return reading;
}

// As everybody writes a name: special characters escaped. The dot at its end is left out.
[[nodiscard]] inline std::string ordinary_text(const Record &record)
{
	const Ldns<char> text(ldns_rdf2str(ldns_rr_owner(record.rr.get())));
	std::string name = text.get();
	name.pop_back();
	return name;
}

[[nodiscard]] inline bool is_a(const Record &record)
{
	return ldns_rr_get_type(record.rr.get()) == LDNS_RR_TYPE_A;
}

} // namespace captive_portal::test
