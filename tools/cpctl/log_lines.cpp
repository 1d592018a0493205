// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/log_lines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "captive_portal/ports.h"
#include "cpctl/cached_addresses.h"
#include "cpctl/interface_names.h"
#include "cpctl/log_format.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

[[nodiscard]] std::optional<int64_t> number_of(std::string_view text)
{
	int64_t number = 0;
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
	if (error != std::errc() || end != text.data() + text.size()) {
		return std::nullopt;
	}
	return number;
}

[[nodiscard]] std::string *find_field(LogFields &fields, std::string_view name)
{
	const auto field = std::ranges::find(fields, name, &LogFields::value_type::first);
	return field == fields.end() ? nullptr : &field->second;
}

// ---- What numbers stand for ----------------------------------------------------------------------------------------------

[[nodiscard]] std::string joined(const std::vector<std::string> &words)
{
	std::string text;
	for (const std::string &word : words) {
		text += (text.empty() ? "" : " ") + word;
	}
	return text.empty() ? "none" : text;
}

[[nodiscard]] std::string row_name(int64_t row)
{
	return row >= 0 && row < CP_ROWS ? interface_of_row(static_cast<uint32_t>(row)).name : std::to_string(row);
}

// The number's meaning; the text as it is where there is none.
[[nodiscard]] std::string meaning(std::string_view kind, const std::string &text)
{
	const std::optional<int64_t> number = number_of(text);
	if (kind.empty() || !number) {
		return text;
	}
	if (kind == "row") {
		return row_name(*number);
	}
	if (kind == "rows") {
		return joined(garden_names(static_cast<uint32_t>(*number)));
	}
	if (kind == "switch") {
		return name_of(switch_names(), static_cast<uint32_t>(*number));
	}
	return text;
}

// "R-V" and "MIREL" as the module's own lists have them.
void mend_list(LogFields &fields)
{
	std::string *const list = find_field(fields, "gardens");
	std::vector<std::string> names;
	std::string_view rest = *list;
	while (!rest.empty()) {
		const std::string_view word = rest.substr(0, rest.find(' '));
		rest.remove_prefix(std::min(rest.size(), word.size() + 1));
		if (!word.empty()) {
			names.emplace_back(word == "MIREL" ? "mirel" : "wlan-");
			names.back() += word == "MIREL" ? std::string_view() : word;
		}
	}
	*list = joined(names);
}

[[nodiscard]] std::string swapped(const std::string &port)
{
	const uint32_t number = static_cast<uint32_t>(number_of(port).value_or(0)) & 0xffff;
	return std::to_string((number >> 8 | number << 8) & 0xffff);
}

// Of clients that are logged in, and of wired ones, the line has ports as they lie in the packet: 80 and 443 are the only
// destinations that are recorded.
void mend_connection(LogFields &fields)
{
	std::string &destination = *find_field(fields, "destination_port");
	const std::string original = swapped(destination);
	if (original == std::to_string(CP_PORT_HTTP) || original == std::to_string(CP_PORT_HTTPS)) {
		destination = original;
		std::string &source = *find_field(fields, "source_port");
		source = swapped(source);
	}
}

// Before login the line has the port that the client asked for, else the redirect port as it lies in the packet.
void mend_redirect_port(LogFields &fields)
{
	std::string &port = *find_field(fields, "redirect_port");
	if (port == std::to_string(CP_PORT_HTTP)) {
		port = std::to_string(CP_PORT_SOCIAL_LOGIN_HTTP);
	} else if (port == std::to_string(CP_PORT_HTTPS)) {
		port = std::to_string(CP_PORT_SOCIAL_LOGIN_HTTPS);
	} else {
		port = swapped(port);
	}
}

void mend_expiry(LogFields &fields)
{
	std::string &state = *find_field(fields, "state");
	state = state.empty() ? "stays" : "expires";
}

// What "enable_value" stands for depends on what is set.
void mend_setting(LogFields &fields)
{
	std::string &setting = *find_field(fields, "setting");
	std::string &value = *find_field(fields, "value");
	const auto number = static_cast<uint32_t>(number_of(value).value_or(0));
	if (setting == "CAPTIVE_PORTAL") {
		setting = "mode";
		value = name_of(mode_names(), number);
	} else if (setting == "BLOCK_HTTPS") {
		setting = "block-https";
		value = name_of(block_https_names(), number);
	} else if (setting == "CP_WALLED_GARDEN") {
		setting = "cp-walled-garden";
		value = name_of(switch_names(), number);
	}
}

// ---- The table -----------------------------------------------------------------------------------------------------------

// clang-format off
constexpr LogDecoder decoders[] = {
	// Start and stop
	{"captive_portal_init\n", "load", "", "the module starts"},
	{"[init captive portal] minor:%d, name:%s\n", "device", "- device", "the control device is {device}"},
	{"nf_register_hook fail\n", "hooks-failed", "", "the hooks could not be registered: no frame is judged; load the bridge module first"},
	{"[captive portal] cannot register miscdev on minor=%d (err=%d)\n", "device-failed", "- error", "the control device could not be made, error {error}"},
	{"[captive portal] captive_portal_misc_dev failed!!\n", "start-failed", "", "the module did not start"},
	{"dns_parse_init\n", "dns-start", "", "the DNS side starts"},
	{"wake_up_process schedule_check_thread\n", "expiry-start", "", "the thread that expires cached addresses starts"},
	{"captive_portal_exit\n", "unload", "", "the module stops"},
	{"dns_parse_exit\n", "dns-stop", "", "the DNS side stops"},
	{"kthread_stop schedule_check_thread\n", "expiry-stop", "", "the thread that expires cached addresses is told to stop"},
	{"[schedule_check]out of loop\n", "expiry-stopped", "", "the thread that expires cached addresses has stopped"},

	// The control device
	{"[walled garden] start to get compat ioctl\n", "compat-call", "", "a program of 32 bits calls"},
	{"[env_set] set debug_level = %d\n", "debug-level", "level", "debug level {level} set"},
	{"[captive portal] get data from user space error\n", "record-unreadable", "", "a portal command's record could not be read"},
	{"[walled garden] get data from user space error\n", "garden-record-unreadable", "", "a walled-garden command's record could not be read"},
	{"[gatekeeper] get data from user space error\n", "client-record-unreadable", "", "a client command's record could not be read"},
	{"[gateway] get data from user space error\n", "gateway-unreadable", "", "the gateway's address could not be read"},
	{"[captive portal] GATEKEEPER_IOCTL_GET copy to user space error\n", "record-unwritable", "", "a portal command's answer could not be written"},
	{"[walled garden] WALLED_GARDEN_IOCTL_GET copy to user space error\n", "garden-record-unwritable", "", "a walled-garden command's answer could not be written"},
	{"[gateway] GATEWAY_IOCTL_GET copy to user space error\n", "gateway-unwritable", "", "the gateway's address could not be written"},
	{"[gatekeeper] GATEKEEPER_IOCTL_GET copy to user space error\n", "client-record-unwritable", "", "a client command's answer could not be written"},

	// Settings of the portal
	{"[captive portal]if_device_write_cp: %s iface=%d enable_value=%d\n", "setting", "setting interface/row value", "{interface}: {setting} {value} asked for", mend_setting},
	{"[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=%d value=%.16s\n", "logout-address", "interface/row address", "{interface}: logout address {address} asked for"},
	{"[captive portal]if_device_write_cp: DNS_FILTER_ENABLE enable_value=%d\n", "dns-filter", "value/switch", "DNS filter {value}"},

	// Walled gardens
	{"[walled garden] rule_number %d out of range\n", "too-many-rules", "count", "a command was refused: {count} rules are more than a record can hold"},
	{"if_device_write_wg: WALLED_GARDEN wg_cmd->iface=%d wg_cmd->enable_value=%d\n", "garden-switch", "interface/row value/switch", "{interface}: garden {value} asked for"},
	{"if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = %d\n", "default-rules", "count", "default rules are replaced by {count}"},
	{"default_rule[%d].domain_name=%.128s\n", "default-rule", "slot name", "default rule {slot}: {name}"},
	{"if_device_write_wg: UPDATE_RULE wg_cmd->iface=%d wg_cmd->rule_number = %d\n", "rules", "interface/row count", "{interface}: replacement by {count} rules asked for"},
	{"http_match: match default rule\n", "default-rule-matched", "", "a name is that of a default rule"},
	{"Wrong type(%d) and input\n", "unknown-question", "type", "the garden was asked in a way that it does not know, type {type}"},
	{"wildcard case : isLastCharWC=[%d], strlen(url_src_ptr)=[%zu]\n", "pattern-unmatched", "- left", "a name does not end as a pattern does, {left} characters are left"},

	// Clients
	{"[gatekeeper] if_device_write: ADD_WHITELIST_MAC mac= " CPCTL_LOG_MAC ", gk_cmd.iface=%.16s\n", "white-add", "client interface", "{interface}: client {client} to be added to white"},
	{"[gatekeeper] if_device_write: DEL_WHITELIST_MAC, gk_cmd.fiace = %.16s  \n", "white-del", "interface", "{interface}: a client is to be deleted from white"},
	{"[gatekeeper] if_device_write: ADD_AUTH_MAC gk_cmd.iface=%.16s \n", "auth-add", "interface", "{interface}: a client is to be added to auth"},
	{"[gatekeeper] if_device_write: DEL_AUTH_MAC gk_cmd.iface=%.16s \n", "auth-del", "interface", "{interface}: a client is to be deleted from auth"},
	{"[gatekeeper] if_device_write: ADD_LOGIN_MAC gk_cmd.iface=%.16s \n", "login-add", "interface", "{interface}: a client is to be added to login"},
	{"[gatekeeper] add mac= " CPCTL_LOG_MAC " \n", "login-add-client", "client", "client {client} logs in"},
	{"[gatekeeper] if_device_write: DEL_LOGIN_MAC gk_cmd.iface=%.16s \n", "login-del", "interface", "{interface}: a client is to be deleted from login"},
	{"[gatekeeper] del mac= " CPCTL_LOG_MAC " \n", "login-del-client", "client", "client {client} is logged out"},
	{"[gatekeeper] if_device_write: FLUSH_CAPTIVE_PORTAL_TABLE gk_cmd.iface=%.16s\n", "portal-flush", "interface", "{interface}: all tables are to be emptied"},
	{"[gatekeeper] if_device_write: %d gk_cmd.iface=%.16s \n", "disconnection", "- interface", "{interface}: disconnection behaviour is to be set"},
	{"[gatekeeper] if_device_write: ADD_MAPPING_OWE_VAP, %d gk_cmd.iface=%.16s, gk_cmd.owe_iface=%.16s \n", "owe-map", "- interface companion", "{companion} is to be judged as {interface}"},
	{"[gatekeeper] if_device_write: FLUSH_MAPPING_OWE_VAP\n", "owe-flush", "", "every OWE companion is forgotten"},
	{"[gatekeeper] if_device_write: ADD_MIREL_BLACK_LIST_MAC mac= " CPCTL_LOG_MAC "\n", "mirel-black-add", "client", "client {client} to be added to mirel-black"},
	{"[gatekeeper] if_device_write: DEL_MIREL_BLACK_LIST_MAC\n", "mirel-black-del", "", "a client is to be deleted from mirel-black"},
	{"[gatekeeper] if_device_write: ADD_MIREL_WHITE_LIST_MAC mac= " CPCTL_LOG_MAC "\n", "mirel-white-add", "client", "client {client} to be added to mirel-white"},
	{"[gatekeeper] if_device_write: DEL_MIREL_WHITE_LIST_MAC\n", "mirel-white-del", "", "a client is to be deleted from mirel-white"},
	{"[gatekeeper] if_device_write: ADD_GA_WHITELIST_MAC mac= " CPCTL_LOG_MAC ", gk_cmd.iface=%.16s\n", "ga-white-add", "client interface", "{interface}: client {client} to be added to ga-white"},
	{"[gatekeeper] if_device_write: DEL_GA_WHITELIST_MAC, gk_cmd.fiace = %.16s  \n", "ga-white-del", "interface", "{interface}: a client is to be deleted from ga-white"},
	{"[gatekeeper] if_device_write: FLUSH_GA_WHITELIST_TABLE gk_cmd.iface=%.16s\n", "ga-white-flush", "interface", "{interface}: ga-white is to be emptied"},
	{"[gatekeeper] if_device_write: ADD_MAC_AUTH_FALLBACK gk_cmd.mac=" CPCTL_LOG_MAC ", gk_cmd.iface=%.16s\n", "mac-auth-fallback-add", "client interface", "{interface}: client {client} to be added to mac-auth-fallback"},
	{"[gatekeeper] if_device_write: DEL_MAC_AUTH_FALLBACK gk_cmd.mac= " CPCTL_LOG_MAC ", gk_cmd.fiace = %.16s  \n", "mac-auth-fallback-del", "client interface", "{interface}: client {client} to be deleted from mac-auth-fallback"},
	{"[gatekeeper] if_device_write: FLUSH_MAC_AUTH_FALLBACK gk_cmd.iface=%.16s\n", "mac-auth-fallback-flush", "interface", "{interface}: mac-auth-fallback is to be emptied"},
	{"[gatekeeper] kmalloc fail(%s)(%d) \n", "no-memory", "- place", "a command was refused: there is no memory for a client (place {place})"},
	{"[gatekeeper] %s: line%d invalid index number\n", "no-such-interface", "- place", "a command was refused: it names no wireless interface (place {place})"},
	{"[gatekeeper]ebt_gate_keeper: Unknow OVRA disconnection behavior, return\n", "unknown-disconnection", "", "dropped: an interface is disconnected, with a behaviour that the module does not know"},

	// Frames
	{"get_bridge_name_by_iface: Could not find %s\n", "port-gone", "interface", "{interface}: is gone while a frame of it is judged"},
	{"get_bridge_name_by_iface: %s is a bridge port but bridge info unavailable\n", "bridge-unreachable", "interface", "{interface}: its bridge cannot be found, br0 is taken"},
	{"get_bridge_name_by_iface: %s is not attached to any bridge\n", "no-port", "interface", "{interface}: is no port of a bridge, br0 is taken"},
	{"nf_cp_check: add to table_list, if_index=%d  saddr=%pI4 daddr=%pI4  src port=%d dest port=%d\n", "connection", "interface/row source destination source_port destination_port", "{interface}: connection of {source}:{source_port} to {destination}:{destination_port} recorded, to be redirected", mend_connection},
	{"[captive portal]dest ip is 2.2.2.2,daddr=%pI4,dst port=%d,saddr=%pI4,src port=%d\n", "social-login", "- redirect_port source source_port", "redirected to port {redirect_port}: {source}:{source_port}, which asked for the social-login address", mend_redirect_port},
	{"nf_cp_check: match walled garden, if_index=%d daddr=%pI4\n", "garden-passed", "interface/row destination", "{interface}: passed to {destination}, which is in the walled garden"},
	{"nf_cp_check: not match walled garden and drop https, if_index=%d saddr=%pI4 daddr=%pI4\n", "https-dropped", "interface/row source destination", "{interface}: dropped: HTTPS of {source} to {destination}, before login"},
	{"init ap_addr %d %s\n", "ap-address", "- -", "the access point's own address was looked up anew"},
	{"[captive portal]http port, dest ip is 4.4.4.4\n", "dns-filter-http", "", "redirected: HTTP to the DNS filter's address"},
	{"[captive portal]https port, dest ip is 4.4.4.4\n", "dns-filter-https", "", "redirected: HTTPS to the DNS filter's address"},
	{"[captive portal] dest ip hit ip raputation rule !!!\n", "reputation-dropped", "", "dropped: no web request, to an address of bad reputation"},
	{"[captive portal]dest ip hit ip raputation rule !!!\n", "reputation-http", "", "redirected: HTTP to an address of bad reputation"},
	{"[captive portal]dest ip hit https ip raputation rule !!!\n", "reputation-https", "", "redirected: HTTPS to an address of bad reputation"},
	{"[captive portal]dest ip match logout ip addr\n", "logout", "", "redirected: a client asked for the logout address"},
	{"[captive portal]block disable, ACCEPT it\n", "https-passed", "", "passed: HTTPS before login, which the interface does not block"},
	{"[nf_cp_change] in_name=%s out_name=%s saddr=%pI4 daddr=%pI4 pass\n", "reply-passed", "- interface source destination", "{interface}: passed as it is: {source} to {destination}"},

	// DNS answers
	{"invalid parameters. (buff = %p, query = %p)\n", "dns-no-question", "- -", "a DNS answer was left out: it has no question"},
	{"invalid parameters. (dns = %p, buff = %p, answer = %p)\n", "dns-no-answer", "- - -", "a DNS answer was left out: it has no answer part"},
	{"invalid parameters. (dns = %p, domain_p = %p)\n", "dns-no-name", "- -", "a DNS answer was left out: it has no name"},
	{"DNS packets might be corrupt or fragmented: %p + %d > %p\n", "dns-cut", "- - -", "a DNS answer is cut short or broken"},
	{"DNS packets might be corrupt or fragmented: %p + %u > %p\n", "dns-cut", "- - -", "a DNS answer is cut short or broken"},
	{"domain length > the max size %d (partial domain = %s, %u + %u + 1 >= %d)\n", "dns-name-too-long", "- name - - -", "a name of a DNS answer is too long: {name}..."},
	{"domain length > the max size %d (partial domain = %s, %u + 1 >= %d)\n", "dns-name-too-long-at-end", "- name - -", "a name of a DNS answer is too long: {name}"},
	{"_parse_dns_domain() error\n", "dns-name-unreadable", "", "a name of a DNS answer cannot be read"},
	{"dns query parsing failed\n", "dns-question-unreadable", "", "a DNS answer was left out: its question cannot be read"},
	{"dns answer parsing failed\n", "dns-answer-unreadable", "", "the rest of a DNS answer was left out: it cannot be read"},
	{"DNS Answer: %s fails with RCODE = %u\n", "dns-error", "name code", "a name server answered for {name} with error {code}"},
	{"Get DNS response: %s, is_match_wg=%d\n", "dns-answer", "name gardens/rows", "a name server answered for {name}, gardens {gardens}"},
	{"(%d/%d, is_match_wg=%d)Qerey: %s, Answer: %s, %pI4, %u mod %d=%d, ttl: %u\n", "dns-address", "number of gardens/rows name owner address - - bucket ttl", "{name} is {address} for {ttl}s, gardens {gardens}"},
	{"total_ip_count=%d\n", "cache-grows", "count", "{count} addresses are cached"},
	{"Exceed maximum (total_ip_count=%d), not add \"A record\" (is_match_wg=%d, %.*s, %pI4)\n", "cache-full", "count gardens/rows name address", "the cache is full with {count} addresses: {name}, {address} stays out"},

	// The pass of the expiry thread
	{"[schedule_check]in while loop, now=%ld, total_ip_count=%d\n", "expiry-pass", "now count", "expiry looks at {count} cached addresses"},
	{"[%d]IP=%s, timeout=%ld, is_match_wg=%d, is_dump=%d%s\n", "expiry-look", "bucket address timeout gardens/rows shown state", "{state}: {address}, gardens {gardens}", mend_expiry},
	{"  match walled garden:%s\n", "address-gardens", "gardens", "    gardens {gardens}", mend_list},
	{"  fqdn = %s\n", "address-name", "name", "    {name}"},

	// The proc file
	{"%s [%d]: total_read=%zu, len=%zu\n", "listing-read", "- - bytes room", "the listing of cached addresses was read: {bytes} bytes, room for {room} more"},
	{"%s [%d]: summary_target:%s\n", "listing-selected", "- - target", "the listing of cached addresses now selects {target}"},
	{"%s [%d]: sscanf iface(%s) failed!\n", "listing-no-interface", "- - target", "refused: the listing cannot select '{target}'"},
	{"%s [%d]: iface(%s) is wrong!\n", "listing-wrong-interface", "- - target", "refused: the listing cannot select '{target}'"},
	{"%s [%d]: ip address(%s) is wrong!\n", "listing-wrong-address", "- - target", "refused: the listing cannot select '{target}', which is no address"},
};
// clang-format on

// ---- Lines -----------------------------------------------------------------------------------------------------------------

[[nodiscard]] std::string_view take_word(std::string_view &text)
{
	const std::string_view word = text.substr(0, text.find(' '));
	text.remove_prefix(std::min(text.size(), word.size() + 1));
	return word;
}

[[nodiscard]] LogFields fields_of(const LogDecoder &decoder, const std::vector<std::string> &values)
{
	LogFields fields;
	std::string_view words = decoder.fields;
	for (const std::string &value : values) {
		const std::string_view word = take_word(words);
		if (word == "-") {
			continue;
		}
		const size_t slash = std::min(word.find('/'), word.size());
		const std::string_view kind = word.substr(std::min(slash + 1, word.size()));
		fields.emplace_back(word.substr(0, slash), meaning(kind, value));
	}
	if (decoder.mend != nullptr) {
		decoder.mend(fields);
	}
	return fields;
}

[[nodiscard]] std::string sentence_of(std::string_view text, LogFields &fields)
{
	std::string sentence;
	while (!text.empty()) {
		const size_t open = text.find('{');
		sentence += text.substr(0, open);
		if (open == std::string_view::npos) {
			break;
		}
		const size_t close = text.find('}', open);
		const std::string *const value = find_field(fields, text.substr(open + 1, close - open - 1));
		sentence += value->empty() ? "(none)" : *value;
		text.remove_prefix(close + 1);
	}
	return sentence;
}

} // namespace

std::span<const LogDecoder> log_decoders()
{
	return decoders;
}

std::optional<DecodedLine> decode_log_line(std::string_view line)
{
	for (const LogDecoder &decoder : decoders) {
		if (const auto values = match_log_format(decoder.format, line)) {
			LogFields fields = fields_of(decoder, *values);
			return DecodedLine{decoder.event, fields, sentence_of(decoder.sentence, fields)};
		}
	}
	return std::nullopt;
}

} // namespace cpctl
