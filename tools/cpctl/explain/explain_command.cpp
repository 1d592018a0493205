// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/explain_command.h"

#include <sstream>

#include "cpctl/explain/explanation.h"
#include "cpctl/explain/frame_bytes.h"
#include "cpctl/explain/meanings.h"
#include "cpctl/explain/pcap_file.h"
#include "cpctl/failure.h"
#include "cpctl/json_answer.h"
#include "cpctl/reasons.h"

namespace cpctl
{

namespace
{

std::vector<FrameRequest> requests_with(const FrameRequest &place, const std::vector<FrameBytes> &frames)
{
	std::vector<FrameRequest> requests;
	for (const FrameBytes &frame : frames) {
		requests.push_back(place);
		requests.back().bytes = without_tag(frame);
	}
	return requests;
}

std::vector<FrameBytes> chosen_frames(const ExplainArguments &arguments)
{
	std::vector<FrameBytes> frames = read_pcap_file(arguments.pcap);
	if (frames.empty()) {
		throw usage_failure(arguments.pcap + " has no frames");
	}
	if (arguments.number == 0) {
		return frames;
	}
	if (arguments.number > frames.size()) {
		throw usage_failure(arguments.pcap + " has no frame " + std::to_string(arguments.number) +
				    ": its last is " + std::to_string(frames.size()));
	}
	return {std::move(frames[arguments.number - 1])};
}

std::vector<FrameRequest> requested_frames(const ExplainArguments &arguments)
{
	if (arguments.number != 0 && arguments.pcap.empty()) {
		throw usage_failure("--number chooses a frame of a capture: say which by --pcap FILE");
	}
	if (arguments.hex.empty() && arguments.pcap.empty()) {
		return parse_frames(arguments.words);
	}
	if (!arguments.hex.empty() && !arguments.pcap.empty()) {
		throw usage_failure("--hex and --pcap both give the frame's bytes: leave one of them out");
	}
	const FrameRequest place = parse_frame_place(arguments.words);
	if (arguments.hex.empty()) {
		return requests_with(place, chosen_frames(arguments));
	}
	return requests_with(place, {parse_hex(arguments.hex)});
}

// A module that counts what cpctl has no name for is newer than the core in it.
void warn_of_newer_module(const Session &session)
{
	for (const StatusLine &line : parse_status_lines(session.read_status_file("counters"))) {
		if (line.keyword() == "count" && find_reason(line.text("reason")) == nullptr) {
			session.note(
				"the module counts '" + line.text("reason") +
				"', which this cpctl does not know: the module is newer, and may decide otherwise");
			return;
		}
	}
}

// ---- For people ----------------------------------------------------------------------------------------------------------

std::string way_of(const FrameExplanation &frame)
{
	const FrameFields fields = fields_of(frame.before.frame);
	std::string text;
	if (fields.source_mac && fields.destination_mac) {
		text = format_mac(*fields.source_mac) + " > " + format_mac(*fields.destination_mac);
	}
	text += frame.in.empty() ? "" : ", in by " + frame.in;
	return text + (frame.out.empty() ? "" : ", out by " + frame.out);
}

void print_step(std::ostream &out, const HookStep &step, bool verbose)
{
	out << "  " << name_of_hook(step.hook) << ": " << step.decision << '\n';
	for (const std::string &sentence : step.because) {
		out << "    " << sentence << '\n';
	}
	if (step.mark_before != step.mark_after) {
		out << "    mark: " << step.mark_before << " -> " << step.mark_after << ", "
		    << meaning_of_mark(step.mark_after) << '\n';
	}
	for (const Change &change : step.changes) {
		out << "    " << change.field << ": " << change.before << " -> " << change.after << '\n';
	}
	for (const std::string &sentence : step.unknown) {
		out << "    unknown: " << sentence << '\n';
	}
	for (const std::string &line : verbose ? step.run.log : std::vector<std::string>()) {
		out << "    log: " << line << '\n';
	}
}

Hue hue_of(Verdict verdict)
{
	return verdict == Verdict::dropped ? Hue::error : verdict == Verdict::passed ? Hue::good : Hue::warning;
}

void print_frame(std::ostream &out, const Session &session, const FrameExplanation &frame, bool verbose)
{
	out << session.paint(Hue::name, format_frame(fields_of(frame.before.frame))) << '\n'
	    << "  " << way_of(frame) << '\n';
	for (const HookStep &step : frame.steps) {
		print_step(out, step, verbose);
	}
	out << "  verdict: "
	    << session.paint(hue_of(frame.verdict), std::string(name_of_verdict(frame.verdict)) + ": " + frame.outcome)
	    << '\n';
}

void print_explanation(const Session &session, const Explanation &explanation, bool verbose)
{
	std::ostringstream text;
	for (const std::string &sentence : explanation.assumed) {
		text << "assumed: " << sentence << '\n';
	}
	for (const FrameExplanation &frame : explanation.frames) {
		print_frame(text, session, frame, verbose);
	}
	session.out << text.str();
}

// ---- For programs --------------------------------------------------------------------------------------------------------

Json json_of(const Count &count)
{
	const Reason &reason = reasons[count.reason];
	return {{"interface", name_of_counted_row(count.row)}, {"reason", reason.name}, {"sentence", reason.sentence}};
}

Json json_of(const HookStep &step)
{
	Json json = {
		{"hook", name_of_hook(step.hook)},
		{"accepted", step.run.accepted},
		{"decision", step.decision},
		{"counted", Json::array()},
		{"because", step.because},
		{"mark", step.mark_after},
		{"mark_meaning", meaning_of_mark(step.mark_after)},
		{"changes", Json::array()},
		{"unknown", step.unknown},
		{"log", step.run.log},
	};
	for (const Count &count : step.run.counts) {
		json["counted"].push_back(json_of(count));
	}
	for (const Change &change : step.changes) {
		json["changes"].push_back(
			{{"field", change.field}, {"before", change.before}, {"after", change.after}});
	}
	return json;
}

std::string hex_of(const FrameBytes &bytes)
{
	constexpr std::string_view digits = "0123456789abcdef";
	std::string text;
	for (const uint8_t byte : bytes) {
		text += digits[byte >> 4];
		text += digits[byte & 0xf];
	}
	return text;
}

Json json_of(const FrameExplanation &frame)
{
	Json json = {
		{"frame", format_frame(fields_of(frame.before.frame))},
		{"in", frame.in},
		{"out", frame.out},
		{"bytes", hex_of(frame.before.frame)},
		{"hooks", Json::array()},
		{"verdict", name_of_verdict(frame.verdict)},
		{"outcome", frame.outcome},
		{"frame_after", format_frame(fields_of(frame.after.frame))},
		{"bytes_after", hex_of(frame.after.frame)},
	};
	for (const HookStep &step : frame.steps) {
		json["hooks"].push_back(json_of(step));
	}
	return json;
}

Json json_of(const Explanation &explanation)
{
	Json json = {{"assumed", explanation.assumed}, {"frames", Json::array()}};
	for (const FrameExplanation &frame : explanation.frames) {
		json["frames"].push_back(json_of(frame));
	}
	return json;
}

} // namespace

Action show_explanation(const ExplainArguments &arguments)
{
	return [requests = requested_frames(arguments), verbose = arguments.verbose](const Session &session) {
		if (session.explaining == nullptr || !session.explaining->make_copy) {
			throw Failure(ExitCode::unavailable,
				      "this cpctl was built without the module's core, which runs on 64-bit "
				      "little-endian processors alone: explain cannot be had here");
		}
		const ModuleTables tables = read_module_tables(session.read_status_file);
		warn_of_newer_module(session);
		const auto devices = session.explaining->read_devices ? session.explaining->read_devices() :
									std::vector<NetworkDevice>();
		const std::unique_ptr<ModuleCopy> copy = session.explaining->make_copy();
		const Explanation explanation = explain_frames(requests, tables, devices, *copy);
		if (session.json != JsonOutput::none) {
			print_json(session, json_of(explanation));
		} else {
			print_explanation(session, explanation, verbose);
		}
	};
}

} // namespace cpctl
