// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/nft_ruleset.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <optional>

namespace cpctl
{

namespace
{

using Words = std::vector<std::string>;

// Words of a line, without the quotation marks and commas around and between them.
[[nodiscard]] Words words_of(std::string_view line)
{
	Words words(1);
	bool in_text = false;
	for (const char sign : line) {
		in_text = in_text != (sign == '"');
		if (sign == '"') {
			continue;
		}
		if (!in_text && (sign == ' ' || sign == '\t' || sign == ',')) {
			if (!words.back().empty()) {
				words.emplace_back();
			}
			continue;
		}
		words.back() += sign;
	}
	if (words.back().empty()) {
		words.pop_back();
	}
	return words;
}

// A line with what it stands in: "inet routed fast" inside of that table's chain or flow table.
struct PlacedLine {
	const std::string &block;
	std::string_view kind;
	const Words &words;
};

// Calls `look` for each line inside of a chain or a flow table, and for the line that begins it.
void for_each_line(std::string_view ruleset, const std::function<void(const PlacedLine &line)> &look)
{
	std::string table;
	std::string block;
	std::string kind;
	while (!ruleset.empty()) {
		const std::string_view line = ruleset.substr(0, ruleset.find('\n'));
		ruleset.remove_prefix(std::min(ruleset.size(), line.size() + 1));
		const Words words = words_of(line);
		if (words.size() >= 3 && words[0] == "table") {
			table = words[1] + " " + words[2];
			kind.clear();
		} else if (words.size() >= 2 && (words[0] == "chain" || words[0] == "flowtable")) {
			kind = words[0];
			block = table + " " + words[1];
		} else if (words.size() == 1 && words[0] == "}") {
			kind.clear();
		}
		if (!kind.empty()) {
			look({block, kind, words});
		}
	}
}

[[nodiscard]] bool begins_block(const PlacedLine &line)
{
	return line.words.size() >= 2 && line.words[0] == line.kind;
}

// The words between the braces that follow the name and an equals sign; one word may do without braces.
[[nodiscard]] Words listed_after(const Words &words, size_t name)
{
	Words listed;
	size_t i = name + 1;
	if (i < words.size() && words[i] == "=") {
		++i;
	}
	if (i < words.size() && words[i] != "{") {
		return {words[i]};
	}
	for (++i; i < words.size() && words[i] != "}"; ++i) {
		listed.push_back(words[i]);
	}
	return listed;
}

// Index of the word, or the number of words.
[[nodiscard]] size_t place_of(const Words &words, std::string_view word, size_t from = 0)
{
	size_t i = from;
	while (i < words.size() && words[i] != word) {
		++i;
	}
	return i;
}

[[nodiscard]] std::optional<uint32_t> mark_of(std::string_view text)
{
	int base = 10;
	if (text.starts_with("0x")) {
		text.remove_prefix(2);
		base = 16;
	}
	uint32_t mark = 0;
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mark, base);
	if (error != std::errc() || end != text.data() + text.size()) {
		return std::nullopt;
	}
	return mark;
}

} // namespace

std::vector<FlowTable> flow_tables(std::string_view ruleset)
{
	std::vector<FlowTable> tables;
	for_each_line(ruleset, [&](const PlacedLine &line) {
		if (line.kind != "flowtable") {
			return;
		}
		if (begins_block(line)) {
			tables.push_back({line.block, {}, false});
			return;
		}
		if (const size_t devices = place_of(line.words, "devices"); devices < line.words.size()) {
			tables.back().devices = listed_after(line.words, devices);
		}
		if (place_of(line.words, "flags") < line.words.size() &&
		    place_of(line.words, "offload") < line.words.size()) {
			tables.back().offload = true;
		}
	});
	return tables;
}

std::vector<MarkRule> mark_rules(std::string_view ruleset)
{
	std::vector<MarkRule> rules;
	for_each_line(ruleset, [&](const PlacedLine &line) {
		const Words &words = line.words;
		for (size_t i = place_of(words, "mark"); i + 2 < words.size(); i = place_of(words, "mark", i + 1)) {
			if (i == 0 || words[i - 1] != "meta" || words[i + 1] != "set") {
				continue;
			}
			if (const auto mark = mark_of(words[i + 2])) {
				rules.push_back({line.block, *mark});
			}
		}
	});
	return rules;
}

std::vector<ForwardingChain> forwarding_chains(std::string_view ruleset)
{
	std::vector<ForwardingChain> chains;
	Words devices;
	for_each_line(ruleset, [&](const PlacedLine &line) {
		if (line.kind != "chain") {
			return;
		}
		const Words &words = line.words;
		if (begins_block(line)) {
			devices.clear();
			return;
		}
		if (const size_t hook = place_of(words, "ingress");
		    hook > 0 && hook < words.size() && words[hook - 1] == "hook") {
			size_t device = place_of(words, "device", hook);
			device = device < words.size() ? device : place_of(words, "devices", hook);
			if (device < words.size()) {
				devices = listed_after(words, device);
			}
		}
		if (!devices.empty() && place_of(words, "fwd") < words.size()) {
			chains.push_back({line.block, devices});
			devices.clear();
		}
	});
	return chains;
}

} // namespace cpctl
