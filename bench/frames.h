// SPDX-License-Identifier: GPL-2.0-only
// Operations on frames: a frame, the hooks that see it, and what must have become of it.
#pragma once

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/light_platform.h"
#include "bench/operation.h"
#include "tests/support/frame_builder.h"

namespace captive_portal::bench
{

using test::frame;
using test::Frame;
using test::FrameBuilder;
using test::Host;

using Hook = cp_verdict (*)(cp_packet *, const cp_ports *);

// The hooks that a frame meets in turn; the last ends at null. They are read when a case is run, so that a compiler
// cannot see which they are.
struct Hooks {
	Hook at_pre_routing[2];
	Hook at_post_routing;
};

// All three, as a frame meets that is bridged from one port to another.
extern const Hooks forwarding;
// A frame that goes up to this machine or is dropped.
extern const Hooks incoming;
// A frame of this machine.
extern const Hooks outgoing;
// Those above with hooks that do nothing.
extern const Hooks empty_forwarding;
extern const Hooks empty_incoming;
extern const Hooks empty_outgoing;

struct FrameCaseParts {
	Hooks hooks;
	std::string in_name;
	std::string out_name = "eth0";
	// The frames, used in turn.
	std::vector<Frame> frames;
	cp_verdict verdict = CP_ACCEPT;
	uint32_t mark = 0;
	// True: the frame has been rewritten, and at pre-routing is for this machine; the rest stays as it came.
	bool rewritten = false;
	uint32_t batch = 64;
	// Puts the module's state back after so many runs.
	std::function<void(uint32_t runs)> undo = {};
};

class FrameCase : public Case
{
public:
	explicit FrameCase(FrameCaseParts parts);

	[[nodiscard]] uint32_t batch() const override { return parts_.batch; }
	void restore(uint32_t runs) override;
	void run(uint32_t number) override;
	void verify() override;

private:
	// A frame is seen by the post-routing hook through a view of its own.
	struct Slot {
		FlatPacket arrived;
		FlatPacket leaving;
	};

	FrameCaseParts parts_;
	std::vector<std::unique_ptr<Slot>> slots_;
	size_t next_frame_ = 0;
	Frame first_frame_;
	cp_verdict verdict_ = CP_ACCEPT;
};

// The router, by which servers outside are reached.
inline constexpr test::Mac router = {0x02, 0x22, 0, 0, 0, 0xfe};

} // namespace captive_portal::bench
