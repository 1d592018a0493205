// SPDX-License-Identifier: GPL-2.0-only
// A frame on its way through the bridge.
//
// The Ethernet header, the linear bytes behind it and the rest lie in heap blocks of exactly their sizes, so a read
// past the end is caught. Whatever may move a real packet's data moves it here, always, and gives the old blocks back.
// Clones share their data; a write that one clone makes must not show in another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "captive_portal/interface_index.h"
#include "platform/host/checksum.h"
#include "platform/packet_fields.h"

namespace captive_portal::host
{

using Frame = std::vector<uint8_t>;

// How much of a frame lies in the linear part: all of it, or no more than a platform promises to a hook.
enum class Layout { linear, headers_only };

// To whom the frame is addressed, as the kernel numbers it.
enum class PacketType : uint8_t { host = 0, broadcast = 1, multicast = 2, other_host = 3 };

// Where the transport checksum lies, offsets from the end of the Ethernet header.
struct ChecksumPlace {
	uint32_t start;
	uint32_t field;
};

class PacketBuffer
{
public:
	explicit PacketBuffer(const Frame &frame, Layout layout = Layout::linear);
	// At most `linear` bytes behind the Ethernet header are linear, from CP_PACKET_HEADER_BYTES on.
	PacketBuffer(const Frame &frame, size_t linear);

	PacketBuffer(PacketBuffer &&) = default;
	PacketBuffer &operator=(PacketBuffer &&) = default;

	// A packet of its own that shares this one's data.
	[[nodiscard]] PacketBuffer clone() const { return PacketBuffer(*this); }

	// All bytes, as they lie in the buffer: of a partial packet with an unfinished checksum.
	[[nodiscard]] Frame frame() const;

	// The caller has made the bytes fit `state`; `place` is needed for `partial` alone.
	void set_checksum_state(ChecksumState state, std::optional<ChecksumPlace> place = {});
	[[nodiscard]] ChecksumState checksum_state() const { return checksum_state_; }
	[[nodiscard]] std::optional<ChecksumPlace> checksum_place() const { return checksum_place_; }
	// Of a complete packet: the sum over all bytes behind the Ethernet header.
	[[nodiscard]] uint16_t sum() const { return sum_; }

	uint32_t mark = 0;
	PacketType type = PacketType::other_host;
	// Devices of the hook state.
	std::optional<std::string> in_name;
	std::optional<std::string> out_name;
	// The packet cannot be made writable.
	bool fail_make_writable = false;
	// Bytes outside the linear part cannot be copied.
	bool fail_copy = false;
	// How often the packet was made writable, and bytes of it were copied, failures included.
	uint32_t make_writable_calls = 0;
	uint32_t copy_calls = 0;

private:
	friend class PacketView;

	// Bytes in a heap block of exactly their number, which is poisoned when it is given back.
	class Block
	{
	public:
		Block() : Block(std::span<const uint8_t>()) {}
		explicit Block(std::span<const uint8_t> bytes);
		Block(const Block &other) : Block(other.bytes()) {}
		Block &operator=(const Block &) = delete;
		Block(Block &&other) noexcept;
		Block &operator=(Block &&other) noexcept;
		~Block();

		[[nodiscard]] uint8_t *data() const { return data_; }
		[[nodiscard]] uint32_t size() const { return size_; }
		[[nodiscard]] std::span<uint8_t> bytes() const { return {data_, size_}; }

	private:
		uint8_t *data_;
		uint32_t size_;
	};

	struct Data {
		Block ethernet;
		Block network; // linear bytes behind the Ethernet header
		Block rest;    // what is not linear
	};

	PacketBuffer(const PacketBuffer &) = default;

	// Moves the data of this packet and of all its clones to new blocks, with at least `linear` bytes linear.
	void move_data(uint32_t linear);
	// The same, and gives this packet data of its own.
	void unshare();

	std::shared_ptr<Data> data_;
	ChecksumState checksum_state_ = ChecksumState::finished;
	std::optional<ChecksumPlace> checksum_place_;
	uint16_t sum_ = 0;
};

// A packet as a hook sees it, made on the stack for the time of one call.
class PacketView
{
public:
	explicit PacketView(PacketBuffer &packet);
	PacketView(const PacketView &) = delete;
	PacketView &operator=(const PacketView &) = delete;

	[[nodiscard]] cp_packet *seam() { return &seam_; }
	[[nodiscard]] const cp_ports *ports() const { return &ports_; }
	// Dies if the hook wrote bytes that it had not made writable.
	void finish();

	[[nodiscard]] static PacketView &of(const cp_packet *packet)
	{
		return *static_cast<PacketView *>(packet->buffer);
	}
	[[nodiscard]] int copy(uint32_t offset, uint8_t *to, uint32_t bytes) const;
	[[nodiscard]] int make_writable(uint32_t bytes);
	void replace_checksum(uint32_t offset, uint32_t from, uint32_t to, cp_checksum_part part);
	void set_host() { packet_.type = PacketType::host; }

private:
	void point_at_data();
	void expect_unwritten_bytes_unchanged() const;

	PacketBuffer &packet_;
	cp_packet seam_{};
	char names_[2][CP_INTERFACE_NAME_SIZE]; // a hook gets whole fields
	cp_ports ports_{};
	Frame before_;
	std::optional<uint32_t> writable_; // bytes behind the Ethernet header that may be written
};

} // namespace captive_portal::host
