// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/narration.h"

#include <algorithm>

#include "captive_portal/captive_portal.h"
#include "cpctl/explain/meanings.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"
#include "cpctl/reasons.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

constexpr std::string_view wireless_prefix = "wlan";

// What is counted beside the reason of the verdict.
bool is_beside_verdict(cp_reason reason)
{
	switch (reason) {
	case CP_REASON_CONNECTION_RECORDED:
	case CP_REASON_CONNECTION_LOST:
	case CP_REASON_CONNECTION_ENDED:
	case CP_REASON_ADDRESS_STORED:
	case CP_REASON_ADDRESS_REFRESHED:
	case CP_REASON_ADDRESS_REFUSED:
	case CP_REASON_ADDRESS_LOST:
		return true;
	default:
		return false;
	}
}

std::optional<Count> count_of_verdict(const HookRun &run)
{
	const auto found =
		std::ranges::find_if(run.counts, [](const Count &count) { return !is_beside_verdict(count.reason); });
	return found != run.counts.end() ? std::optional(*found) : std::nullopt;
}

bool is_for_all_interfaces(const std::string &table)
{
	return table.starts_with("mirel");
}

// "login of wlan-1-1, mirel-black"
std::string places(const std::vector<std::string> &tables, const std::string &interface)
{
	std::string text;
	for (const std::string &table : tables) {
		text += (text.empty() ? "" : ", ") + table + (is_for_all_interfaces(table) ? "" : " of " + interface);
	}
	return text;
}

std::string joined(const std::vector<std::string> &names)
{
	std::string text;
	for (const std::string &name : names) {
		text.append(text.empty() ? "" : ", ").append(name);
	}
	return text;
}

std::string quantity(size_t number, const std::string &what)
{
	return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

class Narrator
{
public:
	Narrator(HookStep &step, const FrameFields &frame, const FrameFields &target, const std::string &device,
		 const ModuleTables &tables, const ModuleCopy &copy)
	    : step_(step), frame_(frame), target_(target), device_(device), tables_(tables),
	      row_(copy.row_of_device(device)), count_(count_of_verdict(step.run))
	{
	}

	void tell()
	{
		switch (step_.hook) {
		case Hook::gatekeeper:
			tell_gatekeeper();
			break;
		case Hook::portal_check:
			tell_portal_check();
			break;
		case Hook::reply_rewrite:
			tell_reply_rewrite();
			break;
		}
		if (count_) {
			step_.decision = reasons[count_->reason].sentence;
		}
		for (const Count &count : step_.run.counts) {
			if (is_beside_verdict(count.reason)) {
				const std::string sentence(reasons[count.reason].sentence);
				because(count.row < CP_ROWS ? sentence + ", of " + name_of_counted_row(count.row) :
							      sentence);
			}
		}
	}

private:
	void because(const std::string &sentence) { step_.because.push_back(sentence); }
	// What let the frame pass where the core counts nothing.
	void passed(const std::string &why) { step_.decision = "passed: " + why; }

	[[nodiscard]] bool is_counted(cp_reason reason) const { return count_ && count_->reason == reason; }
	[[nodiscard]] const RowSettings &settings(uint32_t row) const { return tables_.configuration.rows[row]; }
	[[nodiscard]] static std::string mode_name(const RowSettings &settings)
	{
		return name_of(mode_names(), settings.mode);
	}

	// ---- Gatekeeper --------------------------------------------------------------------------------------------

	void tell_gatekeeper()
	{
		if (frame_.type == EtherType::exempt_first || frame_.type == EtherType::exempt_second) {
			passed("frames of this type pass, whoever sends them");
			return;
		}
		if (is_counted(CP_REASON_DROP_SENDER)) {
			because("the sender is " + format_mac(frame_.source_mac.value_or(MacAddress{})));
			return;
		}
		if (!device_.starts_with(wireless_prefix)) {
			because(device_ + " is no wireless interface");
			tell_guarded_port();
			passed("nothing of the wired side is the portal's business but the access point's own ports");
			return;
		}
		if (frame_.type != EtherType::ipv4 && frame_.type != EtherType::ipv6) {
			passed("neither IPv4 nor IPv6");
			return;
		}
		if (!row_ || *row_ >= CP_WIRELESS_INTERFACES) {
			because(device_ + " is no interface of the module, nor a companion of one");
			return;
		}
		tell_client();
	}

	void tell_guarded_port()
	{
		if (!is_counted(CP_REASON_DROP_WIRED_PORT) && !is_counted(CP_REASON_DROP_PORTAL_PORT)) {
			return;
		}
		const uint16_t port = frame_.destination_port.value_or(0);
		because("port " + std::to_string(port) + " of the access point is " +
			meaning_of_port(port).value_or("a port of the portal"));
	}

	void tell_client()
	{
		const std::string interface = interface_of_row(*row_).name;
		if (device_ != interface) {
			because(device_ + " is judged as " + interface);
		}
		tell_guarded_port();
		if (is_counted(CP_REASON_DROP_PORTAL_PORT)) {
			return;
		}
		const RowSettings &own = settings(*row_);
		const std::string client = format_mac(frame_.source_mac.value_or(MacAddress{}));
		const std::vector<std::string> listed =
			tables_.tables_with(frame_.source_mac.value_or(MacAddress{}), *row_);
		const std::string mirel = mode_name(settings(CP_ROW_MIREL));
		because(client +
			(listed.empty() ? " is in no table of " + interface : " is in " + places(listed, interface)));
		if (std::ranges::any_of(listed, is_for_all_interfaces)) {
			because("the MIREL portal has mode " + mirel);
		}
		if (is_counted(CP_REASON_MARK_FILTER)) {
			because("the DNS filter is on, for " CP_DNS_FILTER_ADDRESS);
		} else if (is_counted(CP_REASON_MARK_LOGOUT_ADDRESS)) {
			because("the logout address of " + interface + " is " +
				(own.logout.empty() ? "not set, which stands for 0.0.0.0" : own.logout));
		} else if (own.disconnection.status == OVRA_DISCONNECTED && !is_admitted(listed)) {
			because(interface + " is disconnected, with behaviour " +
				name_of(behavior_names(), own.disconnection.behavior));
		} else if (!is_admitted(listed)) {
			because(interface + " has mode " + mode_name(own));
		}
	}

	// A client that the row's own lists admit.
	[[nodiscard]] static bool is_admitted(const std::vector<std::string> &listed)
	{
		return !std::ranges::all_of(listed, is_for_all_interfaces);
	}

	// ---- Portal check ------------------------------------------------------------------------------------------

	void tell_portal_check()
	{
		const uint32_t mark = step_.mark_before;
		const auto row = row_of_mark(mark);
		because("mark " + std::to_string(mark) + (mark == 0 ? "" : ": " + meaning_of_mark(mark)) +
			(row ? ", mode " + mode_name(settings(*row)) : ""));
		if (!count_) {
			passed(why_unchecked(mark, row));
			return;
		}
		tell_destination();
		if (row && asks_garden()) {
			tell_https(*row);
			tell_garden(*row);
		}
		if (is_counted(CP_REASON_PASS_NO_IDENTITY)) {
			because("there is no br0, or no IPv4 on it, or " + device_ + " is no port of a bridge");
		} else if (target_.destination != frame_.destination && target_.destination_port) {
			const uint16_t port = *target_.destination_port;
			because("port " + std::to_string(port) + " of the access point is " +
				meaning_of_port(port).value_or("no page"));
		}
	}

	[[nodiscard]] std::string why_unchecked(uint32_t mark, std::optional<uint32_t> row) const
	{
		if (mark == 0) {
			return "nothing is to be checked";
		}
		if (row) {
			return "this portal is off";
		}
		if (!frame_.is(IpProtocol::tcp)) {
			return "neither dropped nor redirected, because it is not TCP";
		}
		return "the mark asks for nothing, or the frame is too short to be redirected";
	}

	void tell_destination()
	{
		if (!frame_.destination) {
			return;
		}
		const std::string address = format_ipv4(*frame_.destination);
		if (is_counted(CP_REASON_REDIRECT_SOCIAL)) {
			because(address + " is the social-login address");
		} else if (is_counted(CP_REASON_PASS_INTERNET)) {
			because(address +
				(*frame_.destination == tables_.configuration.gateway ?
					 " is the gateway" :
					 " is outside of private networks, or the access point that is pinged"));
		}
	}

	// Whether the step came as far as the walled garden, or to the switch before it.
	[[nodiscard]] bool asks_garden() const
	{
		if (!frame_.is(IpProtocol::tcp) || !frame_.destination ||
		    format_ipv4(*frame_.destination) == CP_SOCIAL_LOGIN_ADDRESS) {
			return false;
		}
		switch (count_->reason) {
		case CP_REASON_PASS_HTTPS:
		case CP_REASON_PASS_GARDEN:
		case CP_REASON_DROP_HTTPS:
		case CP_REASON_DROP_TCP_PORT:
		case CP_REASON_DROP_UNWRITABLE:
		case CP_REASON_REDIRECT_PORTAL:
		case CP_REASON_REDIRECT_MIREL:
		case CP_REASON_REDIRECT_MODE_7:
			return true;
		default:
			return false;
		}
	}

	void tell_https(uint32_t row)
	{
		if (frame_.destination_port != CP_PORT_HTTPS) {
			return;
		}
		if (row == CP_ROW_MIREL) {
			because("HTTPS of clients on the MIREL black list is blocked");
			return;
		}
		because(interface_of_row(row).name + " has block-https " +
			name_of(block_https_names(), settings(row).block_https));
	}

	void tell_garden(uint32_t row)
	{
		if (is_counted(CP_REASON_PASS_HTTPS)) {
			return;
		}
		const std::string name = interface_of_row(row).name;
		if (!settings(row).garden.on()) {
			because("the garden of " + name + " is off");
			return;
		}
		// The switch is the interface's own; in this mode the rules are another row's.
		const bool mode_7 = row != CP_ROW_MIREL && settings(row).mode == CP_MODE_INTERNET_PASSES;
		const uint32_t rules_row = mode_7 ? uint32_t{CP_ROW_MODE_7} : row;
		const std::string rules = "the garden of " + name + " is on" +
					  (mode_7 ? ", with the rules of " + interface_of_row(rules_row).name : "") +
					  ": ";
		const std::string address = format_ipv4(*frame_.destination);
		if (const wg_rule *const rule = tables_.rule_with(*frame_.destination, rules_row)) {
			because(rules + "its rule " + format_rule(*rule) + " has " + address);
			return;
		}
		const CachedAddress *const cached = tables_.cached_at(address);
		const std::string names =
			cached != nullptr && !cached->names.empty() ? " as " + joined(cached->names) : "";
		if (is_counted(CP_REASON_PASS_GARDEN)) {
			because(rules + address + " is cached" + names + ", for a name that it permits");
			return;
		}
		because(rules + "no address rule of its " + quantity(settings(rules_row).garden.rules.size(), "rule") +
			" has " + address + ", which is " +
			(cached == nullptr ? "not cached" : "cached" + names + ", for no name that it permits"));
	}

	// ---- Reply rewrite -----------------------------------------------------------------------------------------

	void tell_reply_rewrite()
	{
		const auto page = frame_.is(IpProtocol::tcp) && frame_.source_port ?
					  meaning_of_port(*frame_.source_port) :
					  std::nullopt;
		if (page) {
			because("port " + std::to_string(*frame_.source_port) + " of the access point is " + *page);
		}
		if (is_counted(CP_REASON_REPLY_UNKNOWN)) {
			tell_what_connections_could_change();
		} else if (!count_ && page) {
			passed("its source is not what the module has learned as the access point's address, or it is "
			       "too "
			       "short to be rewritten");
		} else if (!count_) {
			passed("neither a reply of the portal nor a DNS answer for a wireless client");
		}
	}

	void tell_what_connections_could_change()
	{
		const int64_t known = tables_.connections[count_->row];
		if (known == 0) {
			because("no connection of " + name_of_counted_row(count_->row) + " is recorded");
			return;
		}
		step_.unknown.push_back("whether the connection is recorded (connections of " +
					name_of_counted_row(count_->row) + ": " + std::to_string(known) +
					"); if it is, the reply is rewritten: describe the request before it, and then "
					"reply");
	}

	HookStep &step_;
	const FrameFields &frame_;
	const FrameFields &target_;
	const std::string &device_;
	const ModuleTables &tables_;
	std::optional<uint32_t> row_;
	std::optional<Count> count_;
};

} // namespace

void narrate(HookStep &step, const FrameFields &frame, const FrameFields &target, const std::string &device,
	     const ModuleTables &tables, const ModuleCopy &copy)
{
	Narrator(step, frame, target, device, tables, copy).tell();
}

} // namespace cpctl
