// SPDX-License-Identifier: GPL-2.0-only
#include "garden/rule_index.h"

#include "garden/pattern.h"

namespace captive_portal
{

namespace
{

// What a name must have so that a pattern can match it, by the pattern's kind.
enum Kind : uint8_t {
	not_indexed,
	exact,      // no wildcard: the name is the pattern
	with_tail,  // does not end with a wildcard: the name ends with the last piece
	with_head,  // ends, but does not begin with one: the name begins with the first piece
	inner,      // begins and ends with one: the pieces are somewhere
	everything, // nothing but wildcards: nothing
};

constexpr uint32_t all_rows = (1U << CP_ROWS) - 1;
constexpr uint32_t most_visits = 128;
// Rules that a new one is compared with, in search of one with the same pattern.
constexpr uint32_t looked_at_for_same = 4;

// ---- Hashes of literals ----

constexpr uint32_t hash_start = 0x811c9dc5;
constexpr uint32_t hash_factor = 0x01000193;

// Goes on with `hash`, that of the last `done` characters, to the last `length`.
[[nodiscard]] uint32_t hash_of_tail(Text text, size_t length, uint32_t hash = hash_start, size_t done = 0)
{
	const char *character = text.characters + text.length - done;
	const char *const end = text.characters + text.length - length;
	while (character != end) {
		hash = (hash ^ static_cast<uint8_t>(*--character)) * hash_factor;
	}
	return hash;
}

// The same from the front.
[[nodiscard]] uint32_t hash_of_head(Text text, size_t length, uint32_t hash = hash_start, size_t done = 0)
{
	for (; done < length; ++done) {
		hash = (hash ^ static_cast<uint8_t>(text.characters[done])) * hash_factor;
	}
	return hash;
}

constexpr uint32_t chains = 1024;
constexpr uint32_t chain_bits = 10;
static_assert(1U << chain_bits == chains);

constinit wg_rule_node *chain_of_literal[chains] = {};

[[nodiscard]] wg_rule_node *&chain_of(Kind kind, uint32_t hash)
{
	return chain_of_literal[(hash + kind) * 0x9e3779b1 >> (32 - chain_bits)];
}

// ---- Lengths of literals ----

// The lengths that the literals of one kind have, each with the number of rules.
class Lengths
{
public:
	void add(uint32_t length)
	{
		++count_[length];
		bits_[length / word_bits] |= bit(length);
	}
	void remove(uint32_t length)
	{
		if (--count_[length] == 0) {
			bits_[length / word_bits] &= ~bit(length);
		}
	}
	[[nodiscard]] bool has(size_t length) const
	{
		return length < WG_DOMAIN_NAME_SIZE && (bits_[length / word_bits] & bit(length)) != 0;
	}
	// Calls for each length up to `longest` in turn, until the call gives false, and says whether none did.
	template <typename Visit> bool each(size_t longest, Visit visit) const
	{
		for (uint32_t word = 0; word < words; ++word) {
			for (uint64_t bits = bits_[word]; bits != 0; bits &= bits - 1) {
				const size_t length = word * word_bits + static_cast<uint32_t>(__builtin_ctzll(bits));
				if (length > longest) {
					return true;
				}
				if (!visit(length)) {
					return false;
				}
			}
		}
		return true;
	}

private:
	static constexpr uint32_t word_bits = 64;
	static constexpr uint32_t words = WG_DOMAIN_NAME_SIZE / word_bits;

	static constexpr uint64_t bit(size_t length) { return uint64_t{1} << (length % word_bits); }

	uint64_t bits_[words];
	uint16_t count_[WG_DOMAIN_NAME_SIZE];
};

// Those of the kinds that have a literal.
constinit Lengths lengths_of_kind[with_head + 1] = {};

// Bit i: row i has a rule of the kind.
constinit uint32_t rows_with_everything = 0;
constinit uint32_t rows_with_inner = 0;

// ---- Default rules ----

constinit uint32_t default_names = 0;
constinit uint32_t hash_of_default[WG_DEFAULT_RULES] = {};
constinit uint8_t slot_of_default[WG_DEFAULT_RULES] = {};

[[nodiscard]] bool is_default_name_of_hash(Text name, uint32_t hash)
{
	for (uint32_t i = 0; i < default_names; ++i) {
		if (hash_of_default[i] == hash && text_of_field(default_rule[slot_of_default[i]].domain_name) == name) {
			return true;
		}
	}
	return false;
}

// ---- Rules ----

[[nodiscard]] Text pattern_of(const wg_rule_node &rule)
{
	return {rule.domain_name, rule.pattern_length};
}

[[nodiscard]] bool has_literal(const wg_rule_node &rule)
{
	return rule.kind >= exact && rule.kind <= with_head;
}

void compile(wg_rule_node &rule)
{
	const Text pattern = text_of_field(rule.domain_name);
	rule.pattern_length = static_cast<uint8_t>(pattern.length);
	size_t head = 0;
	size_t tail = 0;
	size_t least_length = 0;
	uint64_t characters = 0;
	for (size_t i = 0; i < pattern.length; ++i) {
		if (is_wildcard(pattern.characters[i])) {
			tail = 0;
			continue;
		}
		characters |= uint64_t{1} << (pattern.characters[i] & 63);
		head += head == i ? 1 : 0;
		++tail;
		++least_length;
	}
	rule.characters = characters;
	rule.least_length = static_cast<uint8_t>(least_length);
	if (least_length == pattern.length) {
		rule.kind = exact;
		rule.literal_length = static_cast<uint8_t>(pattern.length);
		rule.hash = hash_of_tail(pattern, pattern.length);
	} else if (tail != 0) {
		rule.kind = with_tail;
		rule.literal_length = static_cast<uint8_t>(tail);
		rule.hash = hash_of_tail(pattern, tail);
	} else if (head != 0) {
		rule.kind = with_head;
		rule.literal_length = static_cast<uint8_t>(head);
		rule.hash = hash_of_head(pattern, head);
	} else {
		rule.kind = least_length != 0 ? inner : everything;
	}
}

// Rules of one pattern stand side by side, if the pattern is met soon enough, so that it is matched once.
void link_rule(wg_rule_node &rule)
{
	wg_rule_node **link = &chain_of(static_cast<Kind>(rule.kind), rule.hash);
	wg_rule_node *other = *link;
	for (uint32_t looked_at = 0; other != nullptr && looked_at < looked_at_for_same; ++looked_at) {
		if (other->kind == rule.kind && other->hash == rule.hash && pattern_of(*other) == pattern_of(rule)) {
			link = &other->next_of_literal;
			rule.same_as_previous = true;
			break;
		}
		other = other->next_of_literal;
	}
	rule.next_of_literal = *link;
	if (rule.next_of_literal != nullptr) {
		rule.next_of_literal->link_of_literal = &rule.next_of_literal;
	}
	rule.link_of_literal = link;
	*link = &rule;
}

void unlink_rule(wg_rule_node &rule)
{
	wg_rule_node *const next = rule.next_of_literal;
	*rule.link_of_literal = next;
	if (next != nullptr) {
		next->link_of_literal = rule.link_of_literal;
		next->same_as_previous = next->same_as_previous && rule.same_as_previous;
	}
}

// The search for the rules that match a name.
class Search
{
public:
	explicit Search(MatchedName &name) : name_(name) {}

	[[nodiscard]] uint32_t matching() const { return matching_; }

	// Asks the rules with this literal. False when there were too many to go on.
	[[nodiscard]] bool visit(Kind kind, size_t length, uint32_t hash)
	{
		bool is_known = false;
		bool matches = false;
		for (const wg_rule_node *rule = chain_of(kind, hash); rule != nullptr; rule = rule->next_of_literal) {
			if (++visits_ > most_visits) {
				return false;
			}
			is_known = is_known && rule->same_as_previous;
			if (rule->hash != hash || rule->kind != kind || rule->literal_length != length ||
			    (matching_ >> rule->row & 1) != 0) {
				continue;
			}
			if (!is_known) {
				matches = compiled_rule_matches(*rule, name_);
				is_known = true;
			}
			matching_ |= static_cast<uint32_t>(matches) << rule->row;
		}
		return true;
	}

private:
	MatchedName &name_;
	uint32_t matching_ = rows_with_everything;
	uint32_t visits_ = 0;
};

} // namespace

uint64_t MatchedName::characters()
{
	if (characters_ == 0) {
		for (size_t i = 0; i < text_.length; ++i) {
			characters_ |= uint64_t{1} << (text_.characters[i] & 63);
		}
	}
	return characters_;
}

void index_rule(wg_rule_node &rule, uint32_t row)
{
	rule.row = static_cast<uint8_t>(row);
	compile(rule);
	if (has_literal(rule)) {
		link_rule(rule);
		lengths_of_kind[rule.kind].add(rule.literal_length);
	} else if (rule.kind == inner) {
		rows_with_inner |= 1U << row;
	} else {
		rows_with_everything |= 1U << row;
	}
}

void unindex_rules(const wg_row &row)
{
	for (wg_rule_node *rule = row.rule_list; rule != nullptr; rule = rule->next) {
		if (has_literal(*rule)) {
			unlink_rule(*rule);
			lengths_of_kind[rule->kind].remove(rule->literal_length);
		} else {
			rows_with_inner &= ~(1U << rule->row);
			rows_with_everything &= ~(1U << rule->row);
		}
		rule->kind = not_indexed;
	}
}

void index_default_rules()
{
	default_names = 0;
	for (uint32_t slot = 0; slot < WG_DEFAULT_RULES; ++slot) {
		const Text name = text_of_field(default_rule[slot].domain_name);
		if (name.length != 0) {
			hash_of_default[default_names] = hash_of_tail(name, name.length);
			slot_of_default[default_names] = static_cast<uint8_t>(slot);
			++default_names;
		}
	}
}

bool is_default_name(Text name)
{
	return default_names != 0 && is_default_name_of_hash(name, hash_of_tail(name, name.length));
}

bool compiled_rule_matches(const wg_rule_node &rule, MatchedName &name)
{
	const Text text = name.text();
	if (rule.kind == exact) {
		return pattern_of(rule) == text;
	}
	if (text.length < rule.least_length || (rule.characters & ~name.characters()) != 0) {
		return false;
	}
	const Text pattern = pattern_of(rule);
	const size_t literal = rule.literal_length;
	if (rule.kind == with_tail && !(Text{text.characters + text.length - literal, literal} ==
					Text{pattern.characters + pattern.length - literal, literal})) {
		return false;
	}
	return pattern_matches_in_place(pattern, text);
}

MatchingRows rows_that_match(MatchedName &name)
{
	constexpr MatchingRows too_many{.matching = 0, .undecided = all_rows};
	const Text text = name.text();
	Search search(name);

	uint32_t hash = hash_start;
	size_t done = 0;
	const auto hash_tail_up_to = [&](size_t length) {
		hash = hash_of_tail(text, length, hash, done);
		done = length;
	};
	if (!lengths_of_kind[with_tail].each(text.length, [&](size_t length) {
		    hash_tail_up_to(length);
		    return search.visit(with_tail, length, hash);
	    })) {
		return too_many;
	}
	const bool has_exact = lengths_of_kind[exact].has(text.length);
	if (has_exact || default_names != 0) {
		hash_tail_up_to(text.length);
	}
	if (default_names != 0 && is_default_name_of_hash(text, hash)) {
		return {.matching = all_rows, .undecided = 0};
	}
	if (has_exact && !search.visit(exact, text.length, hash)) {
		return too_many;
	}

	hash = hash_start;
	done = 0;
	if (!lengths_of_kind[with_head].each(text.length, [&](size_t length) {
		    hash = hash_of_head(text, length, hash, done);
		    done = length;
		    return search.visit(with_head, length, hash);
	    })) {
		return too_many;
	}
	return {.matching = search.matching(), .undecided = rows_with_inner & ~search.matching()};
}

} // namespace captive_portal
