// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/explanation.h"

#include <algorithm>

#include "cpctl/explain/frame_bytes.h"
#include "cpctl/explain/meanings.h"
#include "cpctl/explain/narration.h"
#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

constexpr const char *default_bridge = "br0";
constexpr uint32_t every_row = (1U << CP_ROWS) - 1;

bool has_device(const std::vector<NetworkDevice> &devices, const std::string &name)
{
	return std::ranges::find(devices, name, &NetworkDevice::name) != devices.end();
}

void note_change(std::vector<Change> &changes, const char *field, const std::string &before, const std::string &after)
{
	if (before != after) {
		changes.push_back({field, before, after});
	}
}

std::vector<Change> changes_between(const FrameFields &before, const FrameFields &after)
{
	std::vector<Change> changes;
	note_change(changes, "source", format_end(before.source, before.source_port),
		    format_end(after.source, after.source_port));
	note_change(changes, "destination", format_end(before.destination, before.destination_port),
		    format_end(after.destination, after.destination_port));
	if (before.source_mac && after.source_mac) {
		note_change(changes, "source mac", format_mac(*before.source_mac), format_mac(*after.source_mac));
	}
	if (before.destination_mac && after.destination_mac) {
		note_change(changes, "destination mac", format_mac(*before.destination_mac),
			    format_mac(*after.destination_mac));
	}
	return changes;
}

class Explainer
{
public:
	Explainer(const ModuleTables &tables, const std::vector<NetworkDevice> &devices, ModuleCopy &copy)
	    : tables_(tables), copy_(copy), devices_(devices)
	{
		take_learned_bridge();
		for (const NetworkDevice &device : devices_) {
			copy_.put_device(device);
		}
	}

	void explain(const FrameRequest &request)
	{
		FrameExplanation frame = {.in = request.in, .out = request.out};
		frame.before.frame = request.bytes;
		if (request.is_reply) {
			answer_to_last(request.reply_flags, frame);
		}
		frame.after = frame.before;
		if (request.cached) {
			cache_destination(fields_of(frame.before.frame));
		}
		go_through_hooks(request, frame);
		judge(frame);
		explanation_.frames.push_back(std::move(frame));
	}

	Explanation result() { return std::move(explanation_); }

private:
	// The module knows the devices of the machine's first network namespace; cpctl may be in another.
	void take_learned_bridge()
	{
		if (has_device(devices_, default_bridge) || tables_.ap_address.raw == 0) {
			return;
		}
		devices_.push_back(
			{.name = default_bridge, .mac = tables_.ap_mac, .ipv4 = std::vector{tables_.ap_address}});
		explanation_.assumed.push_back(
			"br0 is not here: taken with the addresses that the module has learned, " +
			format_ipv4(tables_.ap_address) + " and " + format_mac(tables_.ap_mac));
	}

	void take_port(const std::string &name)
	{
		if (has_device(devices_, name) || !has_device(devices_, default_bridge)) {
			return;
		}
		devices_.push_back({.name = name, .bridge = default_bridge});
		copy_.put_device(devices_.back());
		explanation_.assumed.push_back(name + " is not here: taken for a port of br0");
	}

	void answer_to_last(uint8_t flags, FrameExplanation &frame)
	{
		// To the last that came in: other replies may stand between.
		const auto request = std::find_if(explanation_.frames.rbegin(), explanation_.frames.rend(),
						  [](const FrameExplanation &earlier) { return !earlier.in.empty(); });
		const FrameExplanation &last =
			request != explanation_.frames.rend() ? *request : explanation_.frames.front();
		const FrameFields asked = fields_of(last.after.frame);
		if (last.verdict != Verdict::redirected) {
			throw refusal(format_frame(fields_of(last.before.frame)) +
				      " is not redirected, so the access point's service has no reply to it: it " +
				      last.outcome);
		}
		frame.in.clear();
		frame.out = last.in;
		frame.before.frame = tcp_frame({*asked.destination_mac, *asked.source_mac},
					       {*asked.destination, *asked.destination_port},
					       {*asked.source, *asked.source_port}, flags);
	}

	void cache_destination(const FrameFields &fields)
	{
		if (fields.destination) {
			copy_.cache_address(*fields.destination, every_row);
		}
	}

	void go_through_hooks(const FrameRequest &request, FrameExplanation &frame)
	{
		if (!frame.in.empty()) {
			take_port(frame.in);
			if (!run(Hook::gatekeeper, frame.in, frame)) {
				return;
			}
			frame.after.mark = request.mark.value_or(frame.after.mark);
			if (!run(Hook::portal_check, frame.in, frame)) {
				return;
			}
		}
		// What was redirected goes up to the access point itself.
		if (!frame.out.empty() && !frame.after.for_host) {
			take_port(frame.out);
			(void)run(Hook::reply_rewrite, frame.out, frame);
		}
	}

	bool run(Hook hook, const std::string &device, FrameExplanation &frame)
	{
		const FrameFields before = fields_of(frame.after.frame);
		HookStep step = {.hook = hook, .mark_before = frame.after.mark};
		step.run = copy_.run(hook, frame.after, device);
		step.mark_after = frame.after.mark;
		const FrameFields after = fields_of(frame.after.frame);
		step.changes = changes_between(before, after);
		narrate(step, before, after, device, tables_, copy_);
		frame.steps.push_back(std::move(step));
		return frame.steps.back().run.accepted;
	}

	static void judge(FrameExplanation &frame)
	{
		const HookStep &last = frame.steps.back();
		const FrameFields fields = fields_of(frame.after.frame);
		if (!last.run.accepted) {
			frame.verdict = Verdict::dropped;
			frame.outcome = "is dropped by the " + std::string(name_of_hook(last.hook));
		} else if (frame.after.for_host) {
			frame.verdict = Verdict::redirected;
			frame.outcome = "goes to the access point itself, port " +
					std::to_string(fields.destination_port.value_or(0)) + ": " +
					meaning_of_port(fields.destination_port.value_or(0)).value_or("no page");
		} else if (frame.after.frame != frame.before.frame) {
			frame.verdict = Verdict::rewritten;
			frame.outcome = "leaves by " + frame.out + " as " + format_frame(fields);
		} else {
			frame.verdict = Verdict::passed;
			frame.outcome = "passes as it is";
		}
	}

	const ModuleTables &tables_;
	ModuleCopy &copy_;
	std::vector<NetworkDevice> devices_;
	Explanation explanation_;
};

} // namespace

Explanation explain_frames(std::span<const FrameRequest> requests, const ModuleTables &tables,
			   const std::vector<NetworkDevice> &devices, ModuleCopy &copy)
{
	fill_module_copy(copy, tables);
	Explainer explainer(tables, devices, copy);
	for (const FrameRequest &request : requests) {
		explainer.explain(request);
	}
	return explainer.result();
}

std::string_view name_of_hook(Hook hook)
{
	switch (hook) {
	case Hook::gatekeeper:
		return "gatekeeper";
	case Hook::portal_check:
		return "portal check";
	case Hook::reply_rewrite:
		break;
	}
	return "reply rewrite";
}

std::string_view name_of_verdict(Verdict verdict)
{
	switch (verdict) {
	case Verdict::passed:
		return "passed";
	case Verdict::dropped:
		return "dropped";
	case Verdict::redirected:
		return "redirected";
	case Verdict::rewritten:
		break;
	}
	return "rewritten";
}

} // namespace cpctl
