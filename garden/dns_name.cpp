// SPDX-License-Identifier: GPL-2.0-only
// A name that a compression pointer leads to is nested in the name that the pointer stands in: it has a text, a length
// and a room of its own, and a line on failure. As a pointer always ends a name, nothing of the outer one is needed
// after the inner one but its share of the length and its line. So one loop does, and the stack stays as it is.
#include "garden/dns_name.h"

#include "base/byte_order.h"
#include "base/debug_level.h"
#include "platform/platform.h"

namespace captive_portal
{

namespace
{

// Both bits set: a compression pointer. Either alone is deliberately nothing special: a label of 64 to 191 bytes.
constexpr uint8_t pointer_bits = 0xc0;
constexpr uint16_t pointer_offset_bits = 0x3fff;
constexpr uint32_t pointer_bytes = 2;

// Where a name is being decoded: the state of the innermost of the nested calls.
class NameDecoder
{
public:
	NameDecoder(const uint8_t *message, const uint8_t *end, char *out, uint16_t *out_length, int16_t max_length)
	    : message_(message), end_(end), out_(out), out_length_(out_length), room_(max_length > 0 ? max_length : 0),
	      max_length_(max_length)
	{
		__builtin_memset(out_, 0, room_);
		*out_length_ = 0;
	}

	[[nodiscard]] const uint8_t *decode(const uint8_t *name);

private:
	[[nodiscard]] bool lies_inside(const uint8_t *position, uint32_t bytes) const
	{
		return position <= end_ && bytes <= static_cast<uint32_t>(end_ - position) + 1;
	}
	[[nodiscard]] bool take_label(const uint8_t *position, uint8_t count);
	[[nodiscard]] bool enter_name_at(uint16_t offset);
	void write_dot_before_nested_name();
	void cut();
	void add_to_length();
	[[nodiscard]] const uint8_t *fail() const;

	// What this nesting has written so far, for log lines.
	[[nodiscard]] const char *partial_domain() const { return start_ < room_ ? out_ + start_ : ""; }
	[[nodiscard]] char *text(uint32_t position) const { return out_ + start_ + position; }

	const uint8_t *const message_;
	const uint8_t *const end_;
	char *const out_;
	uint16_t *const out_length_;
	const uint32_t room_;

	// Of the innermost nesting: its text starts at out_ + start_ and has room for max_length_ bytes, of which pos_
	// are written or skipped. cut_length_ is its length before a cut; 0 when there was none, and deliberately also
	// when there was one before the first label, so that the next label cuts again, at the end of the room.
	uint32_t nesting_ = 0;
	uint32_t start_ = 0;
	int16_t max_length_;
	uint16_t pos_ = 0;
	uint16_t cut_length_ = 0;

	// Lengths of the nestings so far, added up; settled once one of them was cut.
	uint16_t length_ = 0;
	bool length_is_settled_ = false;
};

const uint8_t *NameDecoder::decode(const uint8_t *name)
{
	const uint8_t *behind = nullptr;
	const uint8_t *position = name;
	while (lies_inside(position, 1)) {
		const uint8_t count = *position;
		if (count == 0) {
			add_to_length();
			*out_length_ = length_;
			return behind != nullptr ? behind : position + 1;
		}
		if ((count & pointer_bits) != pointer_bits) {
			if (!take_label(position, count)) {
				return fail();
			}
			position += 1 + count;
			continue;
		}
		if (!lies_inside(position, pointer_bytes)) {
			return fail();
		}
		const uint16_t offset = read_unaligned<be16>(position).host() & pointer_offset_bits;
		if (!enter_name_at(offset)) {
			return fail();
		}
		if (behind == nullptr) {
			behind = position + pointer_bytes;
		}
		position = message_ + offset;
	}
	return fail();
}

// The label's length byte stands at `position`. A byte must follow the label.
bool NameDecoder::take_label(const uint8_t *position, uint8_t count)
{
	if (!lies_inside(position, count + 2U)) {
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG, "DNS packets might be corrupt or fragmented: %p + %u > %p\n", position + 1,
			       count, end_);
		}
		return false;
	}
	if (pos_ + count >= max_length_ - 1) {
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG,
			       "domain length > the max size %d (partial domain = %s, %u + %u + 1 >= %d)\n",
			       DNS_NAME_SIZE, partial_domain(), pos_, count, max_length_);
		}
		cut();
		return true;
	}
	if (pos_ != 0) {
		*text(pos_++) = '.';
	}
	__builtin_memcpy(text(pos_), position + 1, count);
	pos_ = static_cast<uint16_t>(pos_ + count);
	return true;
}

// From here on no label fits.
void NameDecoder::cut()
{
	if (cut_length_ == 0) {
		cut_length_ = pos_;
		if (nesting_ == 0) {
			*out_length_ = cut_length_;
		}
	}
	pos_ = static_cast<uint16_t>(max_length_ - 1);
}

// False when the pointer leads out of the message, or is one too many: that one fails inside the nesting that it would
// have made.
bool NameDecoder::enter_name_at(uint16_t offset)
{
	if (pos_ != 0) {
		write_dot_before_nested_name();
	}
	if (offset > end_ - message_) {
		if (debug_level_reaches(2)) {
			cp_log(CP_LOG_DEBUG, "DNS packets might be corrupt or fragmented: %p + %u > %p\n", message_,
			       offset, end_);
		}
		return false;
	}
	++nesting_;
	if (nesting_ > DNS_POINTERS_PER_NAME) {
		return false;
	}
	add_to_length();
	start_ += pos_;
	max_length_ = static_cast<int16_t>(max_length_ - pos_);
	pos_ = 0;
	cut_length_ = 0;
	return true;
}

void NameDecoder::write_dot_before_nested_name()
{
	if (pos_ + 1 < max_length_) {
		*text(pos_++) = '.';
	} else if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "domain length > the max size %d (partial domain = %s, %u + 1 >= %d)\n",
		       DNS_NAME_SIZE, partial_domain(), pos_, max_length_);
	}
}

void NameDecoder::add_to_length()
{
	if (length_is_settled_) {
		return;
	}
	length_is_settled_ = cut_length_ != 0;
	length_ = static_cast<uint16_t>(length_ + (length_is_settled_ ? cut_length_ : pos_));
}

// Every nesting but the outermost is reported by the one around it.
const uint8_t *NameDecoder::fail() const
{
	if (debug_level_reaches(2)) {
		for (uint32_t nesting = 0; nesting < nesting_; ++nesting) {
			cp_log(CP_LOG_DEBUG, "_parse_dns_domain() error\n");
		}
	}
	return nullptr;
}

} // namespace

const uint8_t *parse_dns_domain(const uint8_t *message, const uint8_t *name, const uint8_t *end, char *out,
				uint16_t *out_length, int16_t max_length)
{
	if (message == nullptr || name == nullptr) {
		if (debug_level_reaches(2)) {
			cp_log(CP_LOG_DEBUG, "invalid parameters. (dns = %p, domain_p = %p)\n", message, name);
		}
		return nullptr;
	}
	return NameDecoder(message, end, out, out_length, max_length).decode(name);
}

} // namespace captive_portal
