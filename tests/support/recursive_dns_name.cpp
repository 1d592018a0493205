// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/recursive_dns_name.h"

#include <cstdio>

namespace captive_portal::test
{

namespace
{

constexpr int pointers_per_name = 32;

class Decoder
{
public:
	Decoder(const std::vector<uint8_t> &message, DecodedName &result) : message_(message), result_(result) {}

	// The name at `position`, into `text` from `base` on; `depth` pointers led here.
	std::optional<size_t> decode(size_t position, size_t base, uint16_t &length, int16_t max_length, int depth)
	{
		for (int i = 0; i < max_length; ++i) {
			result_.text[base + static_cast<size_t>(i)] = '\0';
		}
		length = 0;
		uint16_t pos = 0;
		uint16_t nested_length = 0;
		for (;;) {
			if (position >= message_.size()) {
				return {};
			}
			const unsigned b = message_[position];
			if (b == 0) {
				if (length == 0) {
					length = static_cast<uint16_t>(pos + nested_length);
				}
				return position + 1;
			}
			if (b >= 0xc0) {
				if (position + 1 >= message_.size()) {
					return {};
				}
				const size_t offset = (b - 0xc0) * 256 + message_[position + 1];
				if (pos != 0) {
					if (pos + 1 < max_length) {
						result_.text[base + pos] = '.';
						++pos;
					} else {
						say("domain length > the max size 128 (partial domain = " +
						    text_from(base) + ", " + std::to_string(pos) +
						    " + 1 >= " + std::to_string(max_length) + ")\n");
					}
				}
				if (offset > message_.size() - 1) {
					say_corrupt(0, offset);
					return {};
				}
				if (depth == pointers_per_name ||
				    !decode(offset, base + pos, nested_length, static_cast<int16_t>(max_length - pos),
					    depth + 1)) {
					say("_parse_dns_domain() error\n");
					return {};
				}
				if (length == 0) {
					length = static_cast<uint16_t>(pos + nested_length);
				}
				return position + 2;
			}
			const size_t next = position + 1 + b;
			if (next > message_.size() - 1) {
				say_corrupt(position + 1, b);
				return {};
			}
			if (static_cast<int>(pos + b) >= max_length - 1) {
				say("domain length > the max size 128 (partial domain = " + text_from(base) + ", " +
				    std::to_string(pos) + " + " + std::to_string(b) +
				    " + 1 >= " + std::to_string(max_length) + ")\n");
				if (length == 0) {
					length = pos;
				}
				pos = static_cast<uint16_t>(max_length - 1);
			} else {
				if (pos != 0) {
					result_.text[base + pos] = '.';
					++pos;
				}
				for (unsigned i = 0; i < b; ++i) {
					result_.text[base + pos + i] = static_cast<char>(message_[position + 1 + i]);
				}
				pos = static_cast<uint16_t>(pos + b);
			}
			position = next;
		}
	}

private:
	void say(std::string text) { result_.lines.push_back({CP_LOG_DEBUG, std::move(text)}); }
	void say_corrupt(size_t position, size_t count)
	{
		char text[160];
		std::snprintf(text, sizeof(text), "DNS packets might be corrupt or fragmented: %p + %zu > %p\n",
			      static_cast<const void *>(message_.data() + position), count,
			      static_cast<const void *>(message_.data() + message_.size() - 1));
		say(text);
	}
	[[nodiscard]] std::string text_from(size_t base) const { return &result_.text[base]; }

	const std::vector<uint8_t> &message_;
	DecodedName &result_;
};

} // namespace

DecodedName decode_recursively(const std::vector<uint8_t> &message, size_t name, int16_t room)
{
	DecodedName result;
	result.text.resize(static_cast<size_t>(room));
	result.behind = Decoder(message, result).decode(name, 0, result.length, room, 0);
	return result;
}

} // namespace captive_portal::test
