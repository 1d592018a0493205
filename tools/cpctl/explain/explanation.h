// SPDX-License-Identifier: GPL-2.0-only
// What the module would do with frames, hook by hook. The verdicts, what is counted and what is rewritten are the core's
// own; the sentences beside them say what in the module's tables they come from.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cpctl/explain/frame_fields.h"
#include "cpctl/explain/frame_words.h"
#include "cpctl/explain/module_copy.h"
#include "cpctl/explain/tables.h"

namespace cpctl
{

// A field that a hook has rewritten.
struct Change {
	std::string field;
	std::string before;
	std::string after;
};

struct HookStep {
	Hook hook = Hook::gatekeeper;
	uint32_t mark_before = 0;
	uint32_t mark_after = 0;
	HookRun run = {};
	// What was decided, and what for.
	std::string decision = {};
	std::vector<std::string> because = {};
	std::vector<Change> changes = {};
	// What the status files do not tell, and what it could change.
	std::vector<std::string> unknown = {};
};

enum class Verdict { passed, dropped, redirected, rewritten };

struct FrameExplanation {
	// With the ports that a reply has got.
	std::string in;
	std::string out;
	Packet before = {};
	Packet after = {};
	std::vector<HookStep> steps = {};
	Verdict verdict = Verdict::passed;
	// As a sentence.
	std::string outcome = {};
};

struct Explanation {
	std::vector<FrameExplanation> frames = {};
	// What was taken for given of devices that are not here.
	std::vector<std::string> assumed = {};
};

// Shows the frames to the copy, one after the other. Throws Failure(refused) where a reply answers to nothing.
[[nodiscard]] Explanation explain_frames(std::span<const FrameRequest> requests, const ModuleTables &tables,
					 const std::vector<NetworkDevice> &devices, ModuleCopy &copy);

[[nodiscard]] std::string_view name_of_hook(Hook hook);
[[nodiscard]] std::string_view name_of_verdict(Verdict verdict);

} // namespace cpctl
