// SPDX-License-Identifier: GPL-2.0-only
#include "bench/frames.h"

#include <utility>

#include "platform/platform.h"

namespace captive_portal::bench
{

namespace
{

cp_verdict accept_all(cp_packet *, const cp_ports *)
{
	return CP_ACCEPT;
}

} // namespace

const Hooks forwarding = {{ebt_gate_keeper, nf_cp_check}, nf_cp_change};
const Hooks incoming = {{ebt_gate_keeper, nf_cp_check}, nullptr};
const Hooks outgoing = {{nullptr, nullptr}, nf_cp_change};
const Hooks empty_forwarding = {{accept_all, accept_all}, accept_all};
const Hooks empty_incoming = {{accept_all, accept_all}, nullptr};
const Hooks empty_outgoing = {{nullptr, nullptr}, accept_all};

FrameCase::FrameCase(FrameCaseParts parts) : parts_(std::move(parts))
{
	for (uint32_t i = 0; i < parts_.batch; ++i) {
		slots_.push_back(std::make_unique<Slot>());
	}
}

void FrameCase::restore(uint32_t runs)
{
	if (parts_.undo) {
		parts_.undo(runs);
	}
	for (uint32_t i = 0; i < runs; ++i) {
		const Frame &frame = parts_.frames[next_frame_];
		if (i == 0) {
			first_frame_ = frame;
		}
		next_frame_ = (next_frame_ + 1) % parts_.frames.size();
		if (parts_.hooks.at_pre_routing[0] != nullptr) {
			slots_[i]->arrived.arrive(frame, parts_.in_name.c_str(), nullptr);
		}
		if (parts_.hooks.at_post_routing != nullptr) {
			slots_[i]->leaving.arrive(frame, nullptr, parts_.out_name.c_str());
		}
	}
}

void FrameCase::run(uint32_t number)
{
	Slot &slot = *slots_[number];
	for (const Hook hook : parts_.hooks.at_pre_routing) {
		if (hook == nullptr) {
			break;
		}
		verdict_ = hook(slot.arrived.view(), slot.arrived.ports());
		if (verdict_ == CP_DROP) {
			return;
		}
	}
	if (parts_.hooks.at_post_routing != nullptr) {
		verdict_ = parts_.hooks.at_post_routing(slot.leaving.view(), slot.leaving.ports());
	}
}

void FrameCase::verify()
{
	const bool arrives = parts_.hooks.at_pre_routing[0] != nullptr;
	FlatPacket &packet = arrives ? slots_[0]->arrived : slots_[0]->leaving;
	require(verdict_ == parts_.verdict, "a frame met another verdict");
	require(packet.mark() == parts_.mark, "a frame has another mark");
	const bool changed = std::memcmp(packet.bytes(), first_frame_.data(), first_frame_.size()) != 0;
	require(changed == parts_.rewritten, "a frame was rewritten, or was not");
	require(packet.is_for_host() == (parts_.rewritten && arrives), "a frame is for this machine, or is not");
}

} // namespace captive_portal::bench
