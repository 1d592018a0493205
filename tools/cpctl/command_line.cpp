// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/command_line.h"

#include <algorithm>
#include <set>

#include <CLI/CLI.hpp>

#include "cpctl/batch.h"
#include "cpctl/cache_commands.h"
#include "cpctl/check_command.h"
#include "cpctl/client_commands.h"
#include "cpctl/command_words.h"
#include "cpctl/configuration_commands.h"
#include "cpctl/explain/frame_words.h"
#include "cpctl/garden_changes.h"
#include "cpctl/garden_check.h"
#include "cpctl/garden_commands.h"
#include "cpctl/interface_commands.h"
#include "cpctl/interface_names.h"
#include "cpctl/monitor_command.h"
#include "cpctl/self_description.h"
#include "cpctl/status_commands.h"
#include "cpctl/system_commands.h"
#include "cpctl/unread_settings.h"
#include "cpctl/upgrade.h"

namespace cpctl
{

namespace
{

constexpr std::string_view exit_codes_help =
	"Exit codes: 0 done, 1 wrong command line, 2 refused by the module or not there, 3 no module or no permission.";

// The longest that --wait takes: a day.
constexpr double longest_wait = 86400;

std::chrono::milliseconds checked_wait(double seconds)
{
	// Not true for NaN, which the parser takes for a number.
	if (!(seconds >= 0 && seconds <= longest_wait)) {
		throw usage_failure("--wait takes 0 to 86400 seconds");
	}
	return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

// Where the parser puts the words; one command fills a part of them.
struct Arguments {
	std::string device = CP_DEVICE_PATH;
	double wait_seconds = 2;
	bool json = false;
	bool pretty = false;
	std::string color = "auto";
	bool statistics = false;
	std::string batch;
	bool force = false;
	bool dry_run = false;
	UpgradeFiles upgrade;
	ExplainArguments explain;
	CacheArguments cache;
	double interval = 1;
	FollowLimits limits;
	bool from_start = false;

	std::string table;
	std::string mac;
	std::string interface;
	std::string owe_interface;
	std::string value;
	std::vector<std::string> words;
};

class CommandLine
{
public:
	CommandLine()
	{
		app_.name("cpctl");
		app_.set_version_flag("-V,--version", "cpctl " CPCTL_VERSION);
		app_.add_option("-d,--device", arguments_.device, "The module's device file")
			->type_name("PATH")
			->capture_default_str();
		app_.add_option("--wait", arguments_.wait_seconds,
				"Seconds to wait while another program has the device open")
			->type_name("SECONDS")
			->capture_default_str();
		app_.add_flag("-j,--json", arguments_.json, "Answer in JSON");
		app_.add_flag("-p,--pretty", arguments_.pretty, "Answer in JSON that people can read");
		app_.add_option("--color", arguments_.color,
				"Colours: auto (on a terminal, without NO_COLOR), always, never")
			->type_name("WHEN")
			->capture_default_str();
		app_.add_option("-b,--batch", arguments_.batch,
				"Run the commands of a file, one a line; - is standard input")
			->type_name("FILE")
			->each([this](const std::string &) { app_.require_subcommand(0); });
		app_.add_flag("--force", arguments_.force,
			      "Batch: go on after failures. Upgrade: also when something is lost");
		app_.footer(std::string(exit_codes_help));
		app_.require_subcommand(1);
		app_.fallthrough();
		describe_client();
		describe_interface();
		describe_garden();
		describe_mirel();
		describe_system();
		describe_status();
		describe_explain();
		describe_cache();
		describe_watching();
		describe_configuration();
		label_usage();
	}

	// Throws CLI::ParseError and Failure.
	void parse(std::vector<std::string> words)
	{
		arguments_ = {};
		command_ = {};
		answers_json_ = takes_force_ = not_in_files_ = false;
		std::ranges::for_each(words, require_whole_word);
		// The parser takes the words from the back.
		std::ranges::reverse(words);
		app_.parse(words);
		if (!arguments_.batch.empty()) {
			if (command_.action) {
				throw usage_failure(
					"--batch takes its commands from the file alone: leave the others out");
			}
			command_.action = run_batch(arguments_.batch, after_failure());
		} else if (arguments_.force && !takes_force_) {
			throw usage_failure("--force is for --batch and upgrade");
		}
	}

	// A line of a file. Throws Failure.
	ParsedCommand parse_line(const std::vector<std::string> &words)
	{
		if (std::optional<ParsedCommand> command = plain_client_command(words)) {
			return *std::move(command);
		}
		try {
			parse(words);
		} catch (const CLI::ParseError &mistake) {
			throw usage_failure(text_of(mistake));
		}
		for (const CLI::Option *option : app_.get_options()) {
			if (option->count() != 0) {
				throw usage_failure("options of cpctl itself go on its command line, not into a file");
			}
		}
		if (not_in_files_) {
			throw usage_failure("this command cannot be one of a file");
		}
		return std::move(command_);
	}

	[[nodiscard]] const CLI::App &app() const { return app_; }

	// Prints help or version when the words asked for them, else the mistake.
	[[nodiscard]] ExitCode explain(const CLI::ParseError &mistake, std::ostream &out, std::ostream &err) const
	{
		if (mistake.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
			app_.exit(mistake, out, err);
			return ExitCode::done;
		}
		err << "cpctl: " << text_of(mistake) << '\n';
		return ExitCode::usage;
	}

	[[nodiscard]] const Action &action() const
	{
		if (!command_.without_effect.empty()) {
			throw usage_failure(command_.without_effect);
		}
		return command_.action;
	}
	[[nodiscard]] const std::string &device() const { return arguments_.device; }

	[[nodiscard]] JsonOutput json() const
	{
		if (!arguments_.json && !arguments_.pretty) {
			return JsonOutput::none;
		}
		if (!answers_json_) {
			throw usage_failure("this command has no answer in JSON: leave -j and -p out");
		}
		return arguments_.pretty ? JsonOutput::pretty : JsonOutput::compact;
	}
	[[nodiscard]] std::chrono::milliseconds wait() const { return checked_wait(arguments_.wait_seconds); }
	[[nodiscard]] Paint paint(const Surroundings &surroundings) const
	{
		return Paint(wants_color(parse_color_choice(arguments_.color), surroundings.out_is_terminal,
					 surroundings.no_color, surroundings.term));
	}

private:
	// Long files are lines of this kind; the parser would take ten times as long. What is not as simple as
	// "client add TABLE MAC IFACE", or wrong, is left to it.
	static std::optional<ParsedCommand> plain_client_command(const std::vector<std::string> &words)
	{
		constexpr size_t without_interface = 4;
		if ((words.size() != without_interface && words.size() != without_interface + 1) ||
		    words[0] != "client" || (words[1] != "add" && words[1] != "del")) {
			return std::nullopt;
		}
		try {
			return ParsedCommand{
				.client = client_change(
					words[1] == "add" ? ClientChange::Kind::add : ClientChange::Kind::del, words[2],
					words[3], words.size() == without_interface ? "" : words.back()),
				.sets = true};
		} catch (const Failure &) {
			return std::nullopt;
		}
	}

	static std::string text_of(const CLI::ParseError &mistake)
	{
		if (mistake.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
			return "help and version go on the command line";
		}
		// What the parser says of an unknown word, too, when a word that it knows has to come.
		const bool word_missing = mistake.get_name() == "RequiredError" &&
					  std::string_view(mistake.what()) == "A subcommand is required";
		return (word_missing ? "an object or a command is missing or not known" : std::string(mistake.what())) +
		       ": see --help, also after an object or a command";
	}

	[[nodiscard]] AfterFailure after_failure() const
	{
		return arguments_.force ? AfterFailure::go_on : AfterFailure::stop;
	}

	using MakeAction = std::function<Action(const Arguments &arguments)>;

	// A word that has commands of its own.
	static CLI::App *add_object(CLI::App &parent, const char *name, const char *description)
	{
		CLI::App *object = parent.add_subcommand(name, description);
		object->require_subcommand(1);
		object->fallthrough();
		return object;
	}

	CLI::App *add_command(CLI::App &object, const char *name, const char *description, const MakeAction &make)
	{
		CLI::App *command = object.add_subcommand(name, description);
		command->fallthrough();
		command->callback([this, command, make] {
			command_.action = make(arguments_);
			command_.sets = settings_.contains(command);
			answers_json_ = answers_json_ || answers_.contains(command);
		});
		return command;
	}

	// Of the commands that set what a configuration has, and so may be in its file.
	void sets_configuration(std::initializer_list<const CLI::App *> commands) { settings_.insert(commands); }

	// Of the commands whose answer can be JSON.
	void answers_in_json(std::initializer_list<const CLI::App *> commands) { answers_.insert(commands); }

	void add_table(CLI::App &command, const char *also = "")
	{
		std::string names;
		for (const ClientTable &table : client_tables()) {
			names += names.empty() ? "" : ", ";
			names += table.name;
		}
		command.add_option("TABLE", arguments_.table, names + also)->required();
	}

	CLI::Option *add_interface(CLI::App &command, const char *description)
	{
		return command.add_option("IFACE", arguments_.interface, description);
	}

	CLI::Option *add_words(CLI::App &command, const char *name, const char *description)
	{
		return command.add_option(name, arguments_.words, description);
	}

	void describe_client()
	{
		constexpr auto not_for_mirel = "wlan-1-1 to wlan-3-8; none for the mirel tables";
		CLI::App &client = *add_object(app_, "client", "Tables of client MAC addresses");
		CLI::App &add = *add_command(client, "add", "Add a client to a table", [this](const Arguments &given) {
			command_.client =
				client_change(ClientChange::Kind::add, given.table, given.mac, given.interface);
			return change_client(*command_.client);
		});
		CLI::App &del =
			*add_command(client, "del", "Delete a client from a table", [this](const Arguments &given) {
				command_.client =
					client_change(ClientChange::Kind::del, given.table, given.mac, given.interface);
				return change_client(*command_.client);
			});
		CLI::App &show = *add_command(client, "show", "List a table", [](const Arguments &given) {
			return show_clients(given.table, given.interface);
		});
		CLI::App &check = *add_command(
			client, "check", "Say whether a client is in a table (exit code 2: no)",
			[](const Arguments &given) { return check_client(given.table, given.mac, given.interface); });
		CLI::App &flush = *add_command(client, "flush", "Empty a table", [](const Arguments &given) {
			return flush_clients(given.table, given.interface);
		});
		for (CLI::App *command : {&add, &del, &check}) {
			add_table(*command);
			command->add_option("MAC", arguments_.mac, "The client, as 02:00:5e:10:00:01")->required();
			add_interface(*command, not_for_mirel);
		}
		add_table(show);
		add_interface(show, "All interfaces when left out");
		sets_configuration({&add, &del, &flush});
		answers_in_json({&show, &check});
		add_table(flush, ", or portal: the five tables of an interface at once");
		add_interface(flush, "wlan-1-1 to wlan-3-8, or all; none for the mirel tables");
	}

	void describe_interface()
	{
		CLI::App &interface = *add_object(app_, "interface", "Portal settings of wireless interfaces");
		CLI::App &set = *add_command(
			interface, "set", "Change settings of an interface", [this](const Arguments &given) {
				Action set_all = set_interface(given.interface, given.words);
				command_.without_effect = unread_setting(given.interface, given.words);
				return set_all;
			});
		add_interface(set, "wlan-1-1 to wlan-3-8, or a row that has no interface, see below")->required();
		set.add_option("SETTINGS", arguments_.words, "Names and values, see below")->required();
		set.footer(std::string(interface_settings_help));

		CLI::App &show = *add_command(interface, "show", "Show settings",
					      [](const Arguments &given) { return show_interface(given.interface); });
		add_interface(show, "All interfaces when left out");

		CLI::App &owe = *add_object(interface, "owe", "OWE companions of interfaces");
		CLI::App &map = *add_command(
			owe, "map", "Judge frames of a companion as those of an interface",
			[](const Arguments &given) { return map_owe_interface(given.owe_interface, given.interface); });
		map.add_option("OWE_IFACE", arguments_.owe_interface, "wlan-1-14 to wlan-3-16")->required();
		add_interface(map, "wlan-1-1 to wlan-3-8")->required();
		CLI::App &unmap = *add_command(owe, "unmap", "Forget a companion", [](const Arguments &given) {
			return unmap_owe_interface(given.owe_interface);
		});
		unmap.add_option("OWE_IFACE", arguments_.owe_interface, "wlan-1-14 to wlan-3-16")->required();
		const CLI::App *const show_owe = add_command(owe, "show", "List the companions",
							     [](const Arguments &) { return show_owe_interfaces(); });
		const CLI::App *const flush = add_command(owe, "flush", "Forget every companion",
							  [](const Arguments &) { return flush_owe_interfaces(); });
		sets_configuration({&set, &map, &unmap, flush});
		answers_in_json({&show, show_owe});
	}

	static constexpr auto garden_rows = "wlan-1-1 to wlan-3-8, special-mark, mode-7, social-login or mirel";
	static constexpr auto garden_lists =
		"wlan-1-1 to wlan-3-8, special-mark, mode-7, social-login, mirel or default";

	// add and del of the list that `place` gives; both want at least one rule.
	void describe_rule_changes(CLI::App &object, const char *name, const char *description, bool names_row,
				   const std::function<GardenPlace(const Arguments &arguments)> &place)
	{
		CLI::App &add =
			*add_command(object, "add", "Add rules behind those that are there",
				     [place](const Arguments &given) { return add_rules(place(given), given.words); });
		CLI::App &del = *add_command(object, "del", "Delete rules", [place](const Arguments &given) {
			return delete_rules(place(given), given.words);
		});
		for (CLI::App *command : {&add, &del}) {
			if (names_row) {
				add_interface(*command, garden_rows)->required();
			}
			add_words(*command, name, description)->required();
		}
		sets_configuration({&add, &del});
	}

	void describe_garden()
	{
		constexpr auto rule =
			"Domain pattern (*.example.com), A.B.C.D, A.B.C.D/LENGTH or A.B.C.D/MASK; at most 24";
		constexpr auto default_rule = "Exact domain name; at most 24";
		CLI::App &garden = *add_object(app_, "garden", "Destinations that are open before login");
		describe_rule_changes(garden, "RULE", rule, true,
				      [](const Arguments &given) { return garden_of_row(given.interface); });
		CLI::App &replace = *add_command(
			garden, "replace", "Replace switch and rules of an interface", [](const Arguments &given) {
				return replace_garden(given.interface, given.value, given.words);
			});
		add_interface(replace, garden_rows)->required();
		replace.add_option("SWITCH", arguments_.value, "on or off")->required();
		add_words(replace, "RULE", rule);

		CLI::App &defaults = *add_object(garden, "default", "Exact names that are open on every interface");
		describe_rule_changes(defaults, "NAME", default_rule, false,
				      [](const Arguments &) { return default_garden(); });
		CLI::App &replace_defaults =
			*add_command(defaults, "replace", "Replace the default rules",
				     [](const Arguments &given) { return replace_default_garden(given.words); });
		add_words(replace_defaults, "NAME", default_rule);

		CLI::App &show = *add_command(garden, "show", "List rules",
					      [](const Arguments &given) { return show_garden(given.interface); });
		add_interface(show, garden_lists)->required();

		CLI::App &check = *add_command(
			garden, "check",
			"Tell of rules that may not do what they are meant for (exit code 2: there are some)",
			[](const Arguments &given) { return check_gardens(given.interface); });
		add_interface(check, "wlan-1-1 to wlan-3-8, special-mark, mode-7, social-login, mirel or default; all "
				     "when left out");

		answers_in_json({&show, &check});

		CLI::App &mirel_garden_object = *add_mirel_garden();
		describe_rule_changes(mirel_garden_object, "RULE", rule, false,
				      [](const Arguments &) { return mirel_garden(); });
		CLI::App &mirel_replace =
			*add_command(mirel_garden_object, "replace", "Replace switch and rules",
				     [](const Arguments &given) { return replace_mirel_garden(given.words); });
		add_words(mirel_replace, "RULE", rule);
		sets_configuration({&replace, &replace_defaults, &mirel_replace});
		mirel_replace.footer("The first word may be on or off; without it the garden is on.");
	}

	CLI::App *add_mirel_garden()
	{
		mirel_ = add_object(app_, "mirel", "The portal of clients on the MIREL black list");
		return add_object(*mirel_, "garden", "Destinations that stay open to them");
	}

	void describe_mirel()
	{
		CLI::App &mode = *add_command(*mirel_, "mode", "Set its mode", [](const Arguments &given) {
			return set_interface(interface_of_row(CP_ROW_MIREL).name, {"mode", given.value});
		});
		sets_configuration({&mode});
		mode.add_option("MODE", arguments_.value, "off, on, internet-passes, drop-tcp, or a number")
			->required();
	}

	void describe_system()
	{
		CLI::App &gateway = *add_object(app_, "gateway", "Address of the access point's gateway");
		CLI::App &set = *add_command(gateway, "set", "Tell the module the address",
					     [](const Arguments &given) { return set_gateway(given.value); });
		set.add_option("ADDRESS", arguments_.value, "A.B.C.D, or none")->required();
		const CLI::App *const show =
			add_command(gateway, "show", "Show it", [](const Arguments &) { return show_gateway(); });
		answers_in_json({show});

		CLI::App &filter = *add_command(app_, "dns-filter", "Switch the DNS filter",
						[](const Arguments &given) { return switch_dns_filter(given.value); });
		filter.add_option("SWITCH", arguments_.value, "on or off")->required();

		CLI::App &debug =
			*add_command(app_, "debug", "Choose how much the packet path writes to the kernel log",
				     [](const Arguments &given) { return set_debug_level(given.value); });
		sets_configuration({&set, &filter, &debug});
		debug.add_option("LEVEL", arguments_.value, "0 (nothing) to 3; the module starts with 1")->required();
	}

	void describe_status()
	{
		CLI::App &status =
			*add_command(app_, "status", "Show what the module has stored, without its control device",
				     [](const Arguments &given) { return show_status(given.statistics); });
		answers_in_json({&status});
		status.add_flag("-s,--statistics", arguments_.statistics, "Also what became of frames, by reason");
		add_command(app_, "metrics", "Print all counts for Prometheus",
			    [](const Arguments &) { return show_metrics(); });
	}

	void describe_explain()
	{
		CLI::App &command = *add_command(
			app_, "explain", "Say what the module would do with frames, and why, without sending any",
			[this](const Arguments &given) {
				answers_json_ = true;
				return show_explanation(given.explain);
			});
		command.add_option("FRAME", arguments_.explain.words, "Words that describe it, see below");
		command.add_option("--hex", arguments_.explain.hex, "The frame's bytes, from its Ethernet header on")
			->type_name("BYTES");
		command.add_option("--pcap", arguments_.explain.pcap, "Frames of a capture of tcpdump -w")
			->type_name("FILE");
		command.add_option("--number", arguments_.explain.number, "Of them the frame with this number, from 1")
			->type_name("NUMBER");
		command.add_flag("-v,--verbose", arguments_.explain.verbose,
				 "Also what the module would log at debug level 3");
		command.footer(std::string(frame_words_help));
	}

	void describe_cache()
	{
		CLI::App &cache = *add_object(app_, "cache", "Cached addresses of names that clients asked for");
		CLI::App &show = *add_command(cache, "show", "List them", [this](const Arguments &given) {
			answers_json_ = true;
			return show_cache(given.cache);
		});
		CLI::App &follow =
			*add_command(cache, "follow", "Show what comes and goes", [this](const Arguments &given) {
				answers_json_ = not_in_files_ = true;
				return follow_cache(given.cache, given.interval, given.limits);
			});
		for (CLI::App *command : {&show, &follow}) {
			command->add_option(
				"IFACE", arguments_.cache.interface,
				"Only wlan-1-1 to wlan-3-8, special-mark, mode-7, social-login or mirel: what "
				"its garden permits");
			command->add_option("--name", arguments_.cache.name, "Only names like this one, with * and ?")
				->type_name("PATTERN");
			command->add_option("--address", arguments_.cache.address, "Only this one")
				->type_name("ADDRESS");
		}
		follow.add_option("--interval", arguments_.interval, "Seconds between two looks")
			->type_name("SECONDS")
			->capture_default_str();
		add_limits(follow);
	}

	void add_limits(CLI::App &command)
	{
		command.add_option("--seconds", arguments_.limits.seconds, "End after so long")->type_name("SECONDS");
		command.add_option("--count", arguments_.limits.count, "End after so many lines")->type_name("NUMBER");
	}

	void describe_watching()
	{
		CLI::App &monitor_command = *add_command(
			app_, "monitor", "Say what the module writes into the kernel log, as it comes",
			[this](const Arguments &given) {
				answers_json_ = not_in_files_ = true;
				return monitor(given.from_start ? KernelLogStart::at_its_begin : KernelLogStart::now,
					       given.limits);
			});
		monitor_command.add_flag("--all", arguments_.from_start, "Also what the log has already");
		add_limits(monitor_command);
		add_command(app_, "check", "Look at this machine for what keeps the portal from working",
			    [this](const Arguments &given) {
				    answers_json_ = true;
				    return check_machine(given.device);
			    });
	}

	void describe_configuration()
	{
		CLI::App &save = *add_command(app_, "save", "Write the whole configuration as commands",
					      [](const Arguments &given) { return save_configuration(given.value); });
		save.add_option("FILE", arguments_.value, "Standard output when left out");

		CLI::App &restore = *add_command(
			app_, "restore", "Make the configuration that of a file", [this](const Arguments &given) {
				not_in_files_ = true;
				return restore_configuration(given.value,
							     given.dry_run ? RestoreRun::dry : RestoreRun::change);
			});
		restore.add_option("FILE", arguments_.value, "Of cpctl save; - is standard input")->required();
		restore.add_flag("--dry-run", arguments_.dry_run, "Only show what would change");

		CLI::App &upgrade = *add_command(
			app_, "upgrade", "Load another module in the place of the running one, with its configuration",
			[this](const Arguments &given) {
				not_in_files_ = true;
				takes_force_ = true;
				return upgrade_module(given.upgrade, given.force);
			});
		upgrade.add_option("MODULE", arguments_.upgrade.module, "The new captive_portal.ko")->required();
		upgrade.add_option("--old", arguments_.upgrade.old_module,
				   "Loaded again when the new one cannot be; none: do without. What modinfo says if "
				   "not given")
			->type_name("FILE");
		upgrade.add_option("--keep", arguments_.upgrade.kept, "Where the configuration is kept")
			->type_name("FILE")
			->capture_default_str();
	}

	// The formatter is shared by all commands, but the top has objects where they have commands.
	void label_usage()
	{
		app_.get_formatter()->label("SUBCOMMAND", "COMMAND");
		app_.get_formatter()->label("Subcommands", "Commands");
		const auto top = std::make_shared<CLI::Formatter>();
		top->label("SUBCOMMAND", "OBJECT COMMAND");
		top->label("Subcommands", "Objects");
		app_.formatter(top);
	}

	CLI::App app_{"Control the captive portal module."};
	CLI::App *mirel_ = nullptr;
	Arguments arguments_;
	std::set<const CLI::App *> settings_;
	std::set<const CLI::App *> answers_;
	// What the last words were.
	ParsedCommand command_;
	bool answers_json_ = false;
	bool takes_force_ = false;
	bool not_in_files_ = false;
};

// The device is opened by the first command that it gets.
class DeferredDevice : public ControlDevice
{
public:
	DeferredDevice(const OpenDevice &open, std::string path, std::chrono::milliseconds wait)
	    : open_(open), path_(std::move(path)), wait_(wait)
	{
	}

	long exchange(cp_command command, std::span<std::byte> record) override
	{
		return device().exchange(command, record);
	}
	long pass_value(cp_command command, uint32_t value) override { return device().pass_value(command, value); }
	void close() { device_.reset(); }

private:
	ControlDevice &device()
	{
		if (device_ == nullptr) {
			device_ = open_(path_, wait_);
		}
		return *device_;
	}

	const OpenDevice &open_;
	std::string path_;
	std::chrono::milliseconds wait_;
	std::unique_ptr<ControlDevice> device_;
};

// One description of the commands for all lines: making it costs more than reading a line.
ParseCommand line_parser()
{
	return [lines = std::shared_ptr<CommandLine>()](const std::vector<std::string> &words) mutable {
		if (lines == nullptr) {
			lines = std::make_shared<CommandLine>();
		}
		return lines->parse_line(words);
	};
}

} // namespace

ExitCode run_command_line(const std::vector<std::string> &words, const Module &module, std::ostream &out,
			  std::ostream &err)
{
	CommandLine command_line;
	if (const auto description = describe_itself(command_line.app(), words)) {
		out << *description;
		return ExitCode::done;
	}
	try {
		command_line.parse(words);
		DeferredDevice device(module.open_device, command_line.device(), command_line.wait());
		Portal portal(device);
		const ParseCommand parse_command = line_parser();
		command_line.action()({
			.portal = portal,
			.read_status_file = module.read_status_file,
			.out = out,
			.err = err,
			.json = command_line.json(),
			.paint = command_line.paint(module.surroundings),
			.surroundings = &module.surroundings,
			.parse_command = &parse_command,
			.close_device = [&device] { device.close(); },
			.explaining = &module.explaining,
		});
	} catch (const CLI::ParseError &mistake) {
		return command_line.explain(mistake, out, err);
	} catch (const Failure &failure) {
		err << "cpctl: " << failure.what() << '\n';
		return failure.code();
	}
	return ExitCode::done;
}

} // namespace cpctl
