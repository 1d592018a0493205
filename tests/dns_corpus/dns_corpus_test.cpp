// SPDX-License-Identifier: GPL-2.0-only
// Hundreds of answers of real servers: what the module stores and says of each is what ldns reads from the same
// bytes, brought to the module's ways by the rules below. See README.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>

#include "tests/dns_corpus/ldns_reading.h"
#include "tests/unit/dns_parser_fixture.h"

namespace captive_portal::test
{

namespace
{

// ---- The corpus

struct Answer {
	std::string question;
	Bytes message;
};

std::vector<Answer> read_corpus()
{
	std::vector<Answer> answers;
	std::ifstream file(DNS_CORPUS);
	for (std::string line; std::getline(file, line);) {
		const size_t colon = line.rfind(": ");
		ldns_rdf *read = nullptr;
		EXPECT_EQ(ldns_str2rdf_b64(&read, line.c_str() + colon + 2), LDNS_STATUS_OK) << line;
		if (const Ldns<ldns_rdf> data{read}) {
			const uint8_t *const message = ldns_rdf_data(data.get());
			answers.push_back({line.substr(0, colon), Bytes(message, message + ldns_rdf_size(data.get()))});
		}
	}
	return answers;
}

// ---- The module's rules

// Each place where the module deliberately departs from an ordinary reader, and how often it did: for one answer, or
// for one record.
enum class Departure {
	question_name_is_cut,   // to 127 characters, between labels
	owner_is_cut,           // likewise, in the log
	pointer_costs_a_label,  // an owner's label that would fit, were there no pointer before it
	text_ends_at_zero_byte, // that a label holds
	bytes_are_not_escaped,  // of a name
	other_question,         // not for A records: none of them is stored
	no_question,            // or more than one: nothing is read
	rcode,                  // not 0: none is stored
	extended_rcode,         // not looked at
	other_section,          // A records of the authority and additional sections are not read
};
using Departures = std::map<Departure, size_t>;

const std::pair<Departure, const char *> all_departures[] = {
	{Departure::question_name_is_cut, "names of questions cut"},
	{Departure::owner_is_cut, "owners cut"},
	{Departure::pointer_costs_a_label, "owners cut earlier because of a pointer"},
	{Departure::text_ends_at_zero_byte, "names that end at a zero byte"},
	{Departure::bytes_are_not_escaped, "names with bytes that others escape"},
	{Departure::other_question, "answers to other questions"},
	{Departure::no_question, "answers without a question"},
	{Departure::rcode, "answers that tell of a failure"},
	{Departure::extended_rcode, "answers with an extended response code"},
	{Departure::other_section, "addresses in other sections"},
};

// A label is kept while it and the text before it, without the dot between them, have at most 126 characters; from the
// first that is not, all are left out. In an owner's name the dot before what a pointer leads to is part of the text,
// and is written before whatever follows is looked at.
constexpr size_t text_and_label = 126;

struct ModuleText {
	std::string text;
	bool is_cut = false;
};

ModuleText text_of(const Pieces &pieces)
{
	std::string text;
	for (const Labels &piece : pieces) {
		if (&piece != &pieces.front() && !text.empty() && text.size() <= text_and_label) {
			text += '.';
		}
		for (const std::string &label : piece) {
			if (text.size() + label.size() > text_and_label) {
				return {text, true};
			}
			const bool dot_is_there = &label == &piece.front();
			text += (dot_is_there ? "" : ".") + label;
		}
	}
	return {text, false};
}

Pieces in_one_piece(const Pieces &pieces)
{
	Labels all;
	for (const Labels &piece : pieces) {
		all.insert(all.end(), piece.begin(), piece.end());
	}
	return {all};
}

std::string until_zero_byte(const std::string &text)
{
	return text.substr(0, text.find('\0'));
}

// Row 5 permits every name.
constexpr int32_t permitting_row = 5;
constexpr uint32_t mask = 1u << permitting_row;

struct Expectation {
	std::vector<Stored> stored;
	std::vector<std::string> said;
	bool some_owner_is_cut = false;
};

// The text of the question's name, and why it is not the ordinary one.
std::string name_of_question(const Record &question, Departures &departures)
{
	const ModuleText name = text_of(in_one_piece(question.owner));
	const std::string text = until_zero_byte(name.text);
	departures[Departure::question_name_is_cut] += name.is_cut;
	departures[Departure::text_ends_at_zero_byte] += text != name.text;
	departures[Departure::bytes_are_not_escaped] +=
		!name.is_cut && text == name.text && text != ordinary_text(question);
	return text;
}

std::string name_of_owner(const Record &record, Expectation &expectation, Departures &departures)
{
	const ModuleText name = text_of(record.owner);
	const std::string text = until_zero_byte(name.text);
	expectation.some_owner_is_cut |= name.is_cut;
	if (is_a(record)) {
		departures[Departure::owner_is_cut] += name.is_cut;
		departures[Departure::pointer_costs_a_label] += name.text != text_of(in_one_piece(record.owner)).text;
		departures[Departure::text_ends_at_zero_byte] += text != name.text;
		departures[Departure::bytes_are_not_escaped] +=
			!name.is_cut && text == name.text && text != ordinary_text(record);
	}
	return text;
}

void expect_address(const Record &record, size_t number, size_t count, const std::string &name,
		    Expectation &expectation, Departures &departures)
{
	const std::string owner = name_of_owner(record, expectation, departures);
	if (!is_a(record)) {
		return;
	}
	const ldns_rdf *const data = ldns_rr_rdf(record.rr.get(), 0);
	const Ldns<char> address(ldns_rdf2str(data));
	const uint8_t *const octets = ldns_rdf_data(data);
	const uint32_t as_number =
		octets[0] | octets[1] << 8 | octets[2] << 16 | static_cast<uint32_t>(octets[3]) << 24;
	const uint32_t seconds = ldns_rr_ttl(record.rr.get());
	const std::string of_mask = std::to_string(mask);
	expectation.said.push_back("(" + std::to_string(number) + "/" + std::to_string(count) +
				   ", is_match_wg=" + of_mask + ")Qerey: " + name + ", Answer: " + owner + ", " +
				   address.get() + ", " + std::to_string(as_number) +
				   " mod 1024=" + std::to_string(octets[0] + 256 * (octets[1] % 4)) +
				   ", ttl: " + std::to_string(seconds) + "\n");
	expectation.stored.push_back({address.get(), name, mask, start_time + seconds});
}

// Why none of the answer's records is stored, if so.
std::optional<Departure> why_nothing(const Bytes &message, const Reading &reading)
{
	if (LDNS_QDCOUNT(message.data()) != 1 || reading.questions.empty()) {
		return Departure::no_question;
	}
	if (!is_a(reading.questions.front())) {
		return Departure::other_question;
	}
	if (LDNS_RCODE_WIRE(message.data()) != LDNS_RCODE_NOERROR) {
		return Departure::rcode;
	}
	return std::nullopt;
}

Expectation expect(const Bytes &message, const Reading &reading, Departures &departures)
{
	Expectation expectation;
	const std::optional<Departure> nothing = why_nothing(message, reading);
	if (nothing) {
		++departures[*nothing];
		if (nothing == Departure::rcode) {
			Departures uncounted;
			expectation.said.push_back(
				"DNS Answer: " + name_of_question(reading.questions.front(), uncounted) +
				" fails with RCODE = " + std::to_string(LDNS_RCODE_WIRE(message.data())) + "\n");
		}
		return expectation;
	}
	const std::string name = name_of_question(reading.questions.front(), departures);
	expectation.said.push_back("Get DNS response: " + name + ", is_match_wg=" + std::to_string(mask) + "\n");
	size_t number = 0;
	for (const Record &record : reading.records) {
		if (record.section == LDNS_SECTION_ANSWER) {
			expect_address(record, number++, LDNS_ANCOUNT(message.data()), name, expectation, departures);
		} else {
			departures[Departure::other_section] += is_a(record);
		}
	}
	return expectation;
}

// ---- Both together

// ldns reads the message at once as it reads it record by record.
void expect_one_reading(const Bytes &message, const Reading &reading, Departures &departures)
{
	EXPECT_TRUE(reading.whole);
	ldns_pkt *read = nullptr;
	ASSERT_EQ(ldns_wire2pkt(&read, message.data(), message.size()), LDNS_STATUS_OK);
	const Ldns<ldns_pkt> packet(read);
	EXPECT_TRUE(ldns_pkt_qr(packet.get()));
	departures[Departure::extended_rcode] += ldns_pkt_edns_extended_rcode(packet.get()) != 0;
	const ldns_rr_list *const answers = ldns_pkt_answer(packet.get());
	size_t number = 0;
	for (const Record &record : reading.records) {
		if (record.section == LDNS_SECTION_ANSWER) {
			ASSERT_LT(number, ldns_rr_list_rr_count(answers));
			const ldns_rr *const same = ldns_rr_list_rr(answers, number++);
			EXPECT_EQ(ldns_rr_compare(same, record.rr.get()), 0);
			EXPECT_EQ(ldns_rr_ttl(same), ldns_rr_ttl(record.rr.get()));
		}
	}
	EXPECT_EQ(number, ldns_rr_list_rr_count(answers));
}

std::vector<Stored> sorted_by_address(std::vector<Stored> all)
{
	std::sort(all.begin(), all.end(), [](const Stored &a, const Stored &b) { return a.address < b.address; });
	return all;
}

class DnsCorpusTest : public DnsParserFixture
{
protected:
	DnsCorpusTest()
	{
		permit("*", permitting_row);
		machine.log.clear();
	}

	// What the module said, but for the cache's lines; whether it said that a name does not fit.
	std::vector<std::string> said(bool &some_name_is_cut)
	{
		std::vector<std::string> lines;
		for (const LogLine &line : machine.log.take()) {
			if (line.text.starts_with("domain length > the max size 128 ")) {
				some_name_is_cut = true;
			} else if (!line.text.starts_with("total_ip_count=")) {
				lines.push_back(line.text);
			}
		}
		return lines;
	}

	const std::vector<Answer> corpus = read_corpus();
};

} // namespace

TEST_F(DnsCorpusTest, StoresAndSaysWhatAnotherReaderReads)
{
	Departures departures;
	size_t addresses = 0;
	for (const Answer &answer : corpus) {
		SCOPED_TRACE(answer.question);
		const Reading reading = read_records(answer.message);
		expect_one_reading(answer.message, reading, departures);
		const Expectation expectation = expect(answer.message, reading, departures);
		EXPECT_EQ(parse(answer.message), 0);
		// No server gives an address twice in one answer.
		EXPECT_EQ(sorted_by_address(stored_addresses()), sorted_by_address(expectation.stored));
		bool some_name_is_cut = false;
		EXPECT_EQ(said(some_name_is_cut), expectation.said);
		EXPECT_EQ(some_name_is_cut, expectation.some_owner_is_cut);
		addresses += expectation.stored.size();
		forget();
	}
	std::printf("%zu answers, %zu addresses\n", corpus.size(), addresses);
	for (const auto &[departure, text] : all_departures) {
		std::printf("%zu %s\n", departures[departure], text);
		EXPECT_GT(departures[departure], 0u) << "the corpus shows none of the " << text;
	}
	// A corpus that shrinks tells of servers that failed when it was made.
	EXPECT_GE(corpus.size(), 800u);
	EXPECT_GE(addresses, 3000u);
}

// Of an answer that is cut anywhere, the records before the cut. Longer answers have more of the same, for minutes.
TEST_F(DnsCorpusTest, StoresWhatAnotherReaderReadsBeforeACut)
{
	machine.log.keep(false);
	debug_level = 0;
	Departures uncounted;
	size_t incomplete = 0;
	for (const Answer &answer : corpus) {
		if (answer.message.size() > 200) {
			continue;
		}
		for (size_t length = LDNS_HEADER_SIZE + 1; length < answer.message.size(); ++length) {
			const Bytes cut(answer.message.begin(),
					answer.message.begin() + static_cast<ptrdiff_t>(length));
			const Expectation expectation = expect(cut, read_records(cut), uncounted);
			EXPECT_EQ(parse(cut), 0);
			ASSERT_EQ(sorted_by_address(stored_addresses()), sorted_by_address(expectation.stored))
				<< answer.question << ", cut after byte " << length;
			incomplete += !expectation.stored.empty();
			forget();
		}
	}
	std::printf("%zu incomplete answers with addresses\n", incomplete);
	EXPECT_GE(incomplete, 5'000u);
}

} // namespace captive_portal::test
