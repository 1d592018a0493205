// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/check_command.h"

#include "cpctl/failure.h"
#include "cpctl/findings.h"
#include "cpctl/json_answer.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

[[nodiscard]] Findings look_at(Machine &machine, const std::string &device, const ReadStatusFile &read)
{
	Findings findings;
	check_module(machine, device, read, findings);
	check_bridge(machine, findings);
	const std::string ruleset = ask_program(machine, {"nft", "list", "ruleset"},
						"flow tables, and marks that rules of nftables set", findings)
					    .value_or("");
	check_fast_paths(machine, ruleset, findings);
	check_marks(machine, ruleset, findings);
	std::vector<StatusLine> status;
	try {
		status = parse_status_lines(read("status"));
	} catch (const Failure &) {
		findings.omit({"services on redirect ports", "the module does not tell which it needs"});
		return findings;
	}
	check_services(machine, status, ruleset, findings);
	return findings;
}

[[nodiscard]] Json json_of(const Findings &findings)
{
	Json json = {{"findings", Json::array()}, {"not_looked_at", Json::array()}};
	for (const Finding &finding : findings.all()) {
		json["findings"].push_back({{"check", finding.check},
					    {"subject", finding.subject},
					    {"problem", finding.problem},
					    {"remedy", finding.remedy}});
	}
	for (const Omission &omission : findings.omissions()) {
		json["not_looked_at"].push_back({{"what", omission.what}, {"why", omission.why}});
	}
	return json;
}

void print(const Session &session, const Findings &findings)
{
	for (const Finding &finding : findings.all()) {
		session.print(session.paint(Hue::name, printable(finding.subject)) + ": " +
			      session.paint(Hue::warning, printable(finding.problem)) + ": " +
			      printable(finding.remedy));
	}
	for (const Omission &omission : findings.omissions()) {
		session.print(session.paint(Hue::quiet, "not looked at: " + omission.what + ": " + omission.why));
	}
	if (findings.all().empty()) {
		session.print(session.paint(Hue::good, "nothing found"));
	}
}

} // namespace

Action check_machine(const std::string &device)
{
	return [device](const Session &session) {
		const Findings findings = look_at(*session.surroundings->machine, device, session.read_status_file);
		if (session.json != JsonOutput::none) {
			print_json(session, json_of(findings));
		} else {
			print(session, findings);
		}
		if (const size_t count = findings.all().size(); count != 0) {
			throw refusal(std::to_string(count) + (count == 1 ? " thing needs" : " things need") +
				      " a look");
		}
	};
}

} // namespace cpctl
