// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/packet_buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/text.h"
#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

constexpr size_t ethernet_header_bytes = 14;
constexpr uint8_t poison = 0xdb;
constexpr int no_memory = -12;
constexpr int bad_address = -14;

uint16_t read_network_order(const uint8_t *bytes)
{
	return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

void write_network_order(uint8_t *bytes, uint16_t value)
{
	bytes[0] = static_cast<uint8_t>(value >> 8);
	bytes[1] = static_cast<uint8_t>(value);
}

} // namespace

PacketBuffer::Block::Block(std::span<const uint8_t> bytes)
    : data_(static_cast<uint8_t *>(std::malloc(bytes.size()))), size_(static_cast<uint32_t>(bytes.size()))
{
	std::copy(bytes.begin(), bytes.end(), data_);
}

PacketBuffer::Block::Block(Block &&other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0))
{
}

PacketBuffer::Block &PacketBuffer::Block::operator=(Block &&other) noexcept
{
	std::swap(data_, other.data_);
	std::swap(size_, other.size_);
	return *this;
}

PacketBuffer::Block::~Block()
{
	std::fill_n(data_, size_, poison);
	std::free(data_);
}

PacketBuffer::PacketBuffer(const Frame &frame, Layout layout)
    : PacketBuffer(frame, layout == Layout::headers_only ? size_t{CP_PACKET_HEADER_BYTES} : frame.size())
{
}

PacketBuffer::PacketBuffer(const Frame &frame, size_t linear)
{
	const std::span<const uint8_t> bytes(frame);
	const size_t ethernet = std::min(bytes.size(), ethernet_header_bytes);
	const size_t network = std::min(bytes.size() - ethernet, linear);
	data_ = std::make_shared<Data>(Data{Block(bytes.first(ethernet)), Block(bytes.subspan(ethernet, network)),
					    Block(bytes.subspan(ethernet + network))});
}

Frame PacketBuffer::frame() const
{
	Frame frame;
	for (const Block *block : {&data_->ethernet, &data_->network, &data_->rest}) {
		frame.insert(frame.end(), block->bytes().begin(), block->bytes().end());
	}
	return frame;
}

void PacketBuffer::set_checksum_state(ChecksumState state, std::optional<ChecksumPlace> place)
{
	if ((state == ChecksumState::partial) != place.has_value()) {
		die("a partial checksum, and only that, has a place");
	}
	checksum_state_ = state;
	checksum_place_ = place;
	const Frame bytes = frame();
	sum_ = state == ChecksumState::complete ?
		       ones_complement_sum(std::span(bytes).subspan(data_->ethernet.size())) :
		       0;
}

void PacketBuffer::move_data(uint32_t linear)
{
	Frame network(data_->network.bytes().begin(), data_->network.bytes().end());
	network.insert(network.end(), data_->rest.bytes().begin(), data_->rest.bytes().end());
	linear = std::max(linear, data_->network.size());
	const std::span<const uint8_t> bytes(network);
	*data_ = Data{Block(data_->ethernet.bytes()), Block(bytes.first(linear)), Block(bytes.subspan(linear))};
}

void PacketBuffer::unshare()
{
	data_ = std::make_shared<Data>(*data_);
}

PacketView::PacketView(PacketBuffer &packet) : packet_(packet), before_(packet.frame())
{
	seam_.mark = &packet.mark;
	const auto field_of = [](char(&field)[CP_INTERFACE_NAME_SIZE], const std::optional<std::string> &name) {
		const std::string text = name.value_or("");
		store_text(field, {text.data(), text.size()});
		return name.has_value() ? field : nullptr;
	};
	ports_ = {field_of(names_[0], packet.in_name), field_of(names_[1], packet.out_name)};
	seam_.buffer = this;
	point_at_data();
}

void PacketView::point_at_data()
{
	seam_.ethernet = packet_.data_->ethernet.data();
	seam_.ethernet_bytes = packet_.data_->ethernet.size();
	seam_.network = packet_.data_->network.data();
	seam_.network_bytes = packet_.data_->network.size();
	seam_.network_length = packet_.data_->network.size() + packet_.data_->rest.size();
}

void PacketView::expect_unwritten_bytes_unchanged() const
{
	const Frame now = packet_.frame();
	const size_t from =
		writable_.has_value() ? std::min(ethernet_header_bytes + *writable_, before_.size()) : size_t{0};
	if (now.size() != before_.size() || !std::equal(now.begin() + static_cast<ptrdiff_t>(from), now.end(),
							before_.begin() + static_cast<ptrdiff_t>(from))) {
		die("a hook wrote to packet bytes that it had not made writable");
	}
}

void PacketView::finish()
{
	expect_unwritten_bytes_unchanged();
}

int PacketView::copy(uint32_t offset, uint8_t *to, uint32_t bytes) const
{
	++packet_.copy_calls;
	const PacketBuffer::Block &network = packet_.data_->network;
	const PacketBuffer::Block &rest = packet_.data_->rest;
	const uint64_t end = uint64_t{offset} + bytes;
	if (end > seam_.network_length || (packet_.fail_copy && end > network.size())) {
		return bad_address;
	}
	for (uint32_t i = 0; i < bytes; ++i) {
		const uint32_t place = offset + i;
		to[i] = place < network.size() ? network.data()[place] : rest.data()[place - network.size()];
	}
	return 0;
}

int PacketView::make_writable(uint32_t bytes)
{
	expect_unwritten_bytes_unchanged();
	++packet_.make_writable_calls;
	const uint32_t present = packet_.data_->network.size() + packet_.data_->rest.size();
	const bool possible = !packet_.fail_make_writable && bytes <= present &&
			      packet_.data_->ethernet.size() == ethernet_header_bytes;
	packet_.move_data(possible ? bytes : 0);
	if (possible) {
		packet_.unshare();
		writable_ = std::max(bytes, writable_.value_or(0));
	}
	point_at_data();
	return possible ? 0 : no_memory;
}

void PacketView::replace_checksum(uint32_t offset, uint32_t from, uint32_t to, cp_checksum_part part)
{
	if (!writable_.has_value() || offset + sizeof(uint16_t) > *writable_) {
		die("checksum at %u replaced in a packet that is not writable there", offset);
	}
	uint8_t *const field = packet_.data_->network.data() + offset;
	const uint16_t value = read_network_order(field);
	// The values come as they lie in the packet.
	from = __builtin_bswap32(from);
	to = __builtin_bswap32(to);
	if (packet_.checksum_state_ != ChecksumState::partial) {
		write_network_order(field, checksum_after_change(value, from, to));
		if (packet_.checksum_state_ == ChecksumState::complete && part == CP_CHECKSUM_PSEUDO_HEADER) {
			// Only the checksum field's own change shows in the sum over the packet: the IPv4 header
			// checksum makes up for the address, and a payload's change for that of the field.
			packet_.sum_ = sum_after_change(packet_.sum_, to, from);
		}
	} else if (part == CP_CHECKSUM_PSEUDO_HEADER) {
		write_network_order(field, sum_after_change(value, from, to));
	}
}

} // namespace captive_portal::host
