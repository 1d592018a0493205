// SPDX-License-Identifier: GPL-2.0-only
// Another module in the place of the one that runs, against the module's own core.
#include "tests/unit/cpctl_core.h"

#include <cerrno>

#include "captive_portal/portal.h"
#include "captive_portal/walled_garden.h"

namespace captive_portal::test
{

namespace
{

using Words = std::vector<std::string>;

// Modules of the machine: a file is loaded unless `refused` knows an error for it.
class MachineModules : public cpctl::KernelModules
{
public:
	explicit MachineModules(host::Machine &machine) : machine_(machine) {}

	int load(const std::string &path) override
	{
		done.push_back("load " + path);
		if (refused.contains(path)) {
			return refused.at(path);
		}
		const int error = -machine_.load();
		if (error == 0 && after_load) {
			after_load(path);
		}
		return error;
	}
	int unload(const std::string &name) override
	{
		done.push_back("unload " + name);
		return refused.contains(name) ? refused.at(name) : -machine_.unload();
	}
	std::string path_of(const std::string &) override { return path; }

	std::map<std::string, int> refused;
	std::function<void(const std::string &path)> after_load;
	std::string path;
	Words done;

private:
	host::Machine &machine_;
};

class CpctlUpgrade : public CpctlWithTheCore
{
protected:
	void SetUp() override
	{
		CpctlWithTheCore::SetUp();
		surroundings.modules = &modules;
		new_module = file_with("\x7f"
				       "ELF new");
		old_module = file_with("\x7f"
				       "ELF old");
		kept = file_with("");
		standard_input = "client add login 02:00:5e:10:00:01 wlan-1-1\ninterface set wlan-1-1 mode on\n"
				 "garden replace wlan-1-1 on a.example b.example\n";
		EXPECT_EQ(run({"-b", "-"}), 0) << err;
		saved = answer({"save"});
		before = machine.status_text("status") + machine.status_text("clients") + machine.status_text("garden");
	}

	int upgrade(const Words &more = {})
	{
		Words words = {"upgrade", new_module, "--keep", kept, "--old", old_module};
		words.insert(words.end(), more.begin(), more.end());
		return run(words);
	}
	void expect_as_before()
	{
		EXPECT_EQ(machine.status_text("status") + machine.status_text("clients") +
				  machine.status_text("garden"),
			  before);
	}
	void expect_untouched()
	{
		EXPECT_TRUE(modules.done.empty()) << modules.done.front();
		expect_as_before();
	}
	[[nodiscard]] bool says(const std::string &part) const { return err.find(part) != std::string::npos; }

	MachineModules modules{machine};
	std::string new_module;
	std::string old_module;
	std::string kept;
	std::string saved;
	std::string before;
};

TEST_F(CpctlUpgrade, PutsTheNewModuleInPlaceWithTheConfiguration)
{
	ASSERT_EQ(upgrade(), 0) << err;
	EXPECT_EQ(err, "");
	EXPECT_EQ(modules.done, (Words{"unload captive_portal", "load " + new_module}));
	expect_as_before();
	EXPECT_EQ(text_of_file(kept), saved);
	EXPECT_NE(out.find("; clients on lists: 1; the configuration is also in " + kept + "\n"), std::string::npos)
		<< out;
}

TEST_F(CpctlUpgrade, TakesRulesAlongThatLookLikeOptions)
{
	wg_cmd garden = {};
	garden.cmd = UPDATE_RULE;
	garden.enable_value = 1;
	garden.rule_number = 1;
	std::strcpy(garden.rules[0].domain_name, "-ads.example");
	send(WALLED_GARDEN_IOCTL_SET, garden);
	before = machine.status_text("status") + machine.status_text("clients") + machine.status_text("garden");
	ASSERT_EQ(upgrade(), 0) << err;
	expect_as_before();
}

TEST_F(CpctlUpgrade, TellsTheTimeFromUnloadToRestored)
{
	int looks = 0;
	surroundings.now = [&looks] { return cpctl::Clock::time_point(std::chrono::microseconds(1500 * looks++)); };
	ASSERT_EQ(upgrade(), 0) << err;
	EXPECT_TRUE(out.starts_with("upgraded: ")) << out;
	EXPECT_NE(out.find("without the configuration (unload 1.5 ms, load 1.5 ms, restore "), std::string::npos)
		<< out;
}

TEST_F(CpctlUpgrade, GoesBackWhenTheNewModuleDoesNotLoad)
{
	modules.refused[new_module] = ENOEXEC;
	EXPECT_EQ(upgrade(), 2);
	EXPECT_EQ(modules.done, (Words{"unload captive_portal", "load " + new_module, "load " + old_module}));
	EXPECT_TRUE(says(new_module + " was not loaded: it is no module of this kernel (dmesg says more)\n")) << err;
	EXPECT_TRUE(says(old_module + " is loaded again, with its configuration, after ")) << err;
	EXPECT_TRUE(says("cpctl restore " + kept)) << err;
	expect_as_before();
	EXPECT_EQ(out, "");
}

TEST_F(CpctlUpgrade, GoesBackWhenTheNewModuleDoesNotTakeTheConfiguration)
{
	modules.after_load = [this](const std::string &path) {
		if (path == new_module) {
			// Of the second rule: before it come two copies of the garden's record, and a rule.
			machine.memory.fail_allocation(4);
		}
	};
	EXPECT_EQ(upgrade(), 2);
	EXPECT_EQ(modules.done, (Words{"unload captive_portal", "load " + new_module, "unload captive_portal",
				       "load " + old_module}));
	EXPECT_TRUE(says(new_module + " did not take the configuration: ")) << err;
	EXPECT_TRUE(says(old_module + " is loaded again, with its configuration")) << err;
	expect_as_before();
}

TEST_F(CpctlUpgrade, SaysWhereTheConfigurationIsWhenNoModuleLoads)
{
	modules.refused[new_module] = ENOMEM;
	modules.refused[old_module] = EKEYREJECTED;
	EXPECT_EQ(upgrade(), 3);
	EXPECT_TRUE(says("no module is loaded now: every client passes")) << err;
	EXPECT_TRUE(says(old_module + " was not loaded again: this kernel wants modules that are signed")) << err;
	EXPECT_TRUE(says("cpctl restore " + kept)) << err;
	EXPECT_EQ(text_of_file(kept), saved);
	ASSERT_EQ(machine.load(), 0);
	EXPECT_EQ(answer({"restore", kept}), "");
	expect_as_before();
}

TEST_F(CpctlUpgrade, WithoutAnOldModuleItSaysSo)
{
	modules.refused[new_module] = ENOMEM;
	EXPECT_EQ(run({"upgrade", new_module, "--keep", kept, "--old", "none"}), 3);
	EXPECT_TRUE(says("there is no old one to load again")) << err;
	EXPECT_EQ(text_of_file(kept), saved);
	ASSERT_EQ(machine.load(), 0);
}

TEST_F(CpctlUpgrade, AModuleThatIsInUseStays)
{
	{
		MachineDevice daemon(machine, false, calls);
		EXPECT_EQ(upgrade(), 2);
	}
	EXPECT_TRUE(says("stop the program that has its device open. Nothing was changed")) << err;
	expect_as_before();
	modules.refused["captive_portal"] = EPERM;
	EXPECT_EQ(upgrade(), 3);
	EXPECT_TRUE(says("run cpctl as root. Nothing was changed")) << err;
	expect_as_before();
}

TEST_F(CpctlUpgrade, ChecksTheFilesFirst)
{
	const std::string text = file_with("\xfd"
					   "7zXZ");
	for (const Words &words :
	     {Words{"upgrade", "/nonexistent.ko", "--keep", kept, "--old", old_module},
	      Words{"upgrade", text, "--keep", kept, "--old", old_module},
	      Words{"upgrade", new_module, "--keep", kept, "--old", text}, Words{"upgrade", new_module, "--keep", kept},
	      Words{"upgrade", new_module, "--keep", text, "--old", old_module}, Words{"upgrade"}}) {
		EXPECT_EQ(run(words), 1) << words.size();
		expect_untouched();
	}
	EXPECT_EQ(run({"upgrade", new_module, "--keep", kept + "/file", "--old", old_module}), 3);
	expect_untouched();
	surroundings.modules = nullptr;
	EXPECT_EQ(upgrade(), 3);
	EXPECT_EQ(err, "cpctl: modules cannot be loaded here\n");
}

TEST_F(CpctlUpgrade, WaitsUntilTheConfigurationStaysAsItIs)
{
	uint32_t changes = 0;
	before_status_file = [&](const std::string &name) {
		if (name == "status" && changes < 3) {
			send(GATEWAY_IOCTL_SET, ++changes);
		}
	};
	EXPECT_EQ(upgrade(), 0) << err;
	EXPECT_NE(text_of_file(kept).find("\ngateway set 3.0.0.0\n"), std::string::npos) << text_of_file(kept);
	EXPECT_NE(answer({"save"}).find("\ngateway set 3.0.0.0\n"), std::string::npos) << out;
}

TEST_F(CpctlUpgrade, AConfigurationThatNeverStaysAsItIsIsNotUpgraded)
{
	uint32_t looks = 0;
	before_status_file = [&](const std::string &name) {
		if (name == "status") {
			send(GATEWAY_IOCTL_SET, ++looks);
		}
	};
	EXPECT_EQ(upgrade(), 2);
	EXPECT_EQ(err,
		  "cpctl: another program goes on changing the configuration: stop it first. Nothing was changed\n");
	EXPECT_EQ(looks, 5U);
	EXPECT_TRUE(modules.done.empty());
}

TEST_F(CpctlUpgrade, AsksModinfoForTheOldModule)
{
	modules.path = new_module;
	EXPECT_EQ(run({"upgrade", new_module, "--keep", kept}), 1);
	EXPECT_TRUE(says("which file the running module came from is not known")) << err;
	expect_untouched();
	modules.path = old_module;
	modules.refused[new_module] = ENOMEM;
	EXPECT_EQ(run({"upgrade", new_module, "--keep", kept}), 2);
	EXPECT_EQ(modules.done.back(), "load " + old_module);
	expect_as_before();
}

TEST_F(CpctlUpgrade, LosesNothingUnlessTold)
{
	cp_cmd logout = {};
	logout.cmd = LOGOUT_IP_NOTIFY;
	std::strcpy(logout.value, "odd");
	send(CAPTIVE_PORTAL_IOCTL_SET, logout);
	before = machine.status_text("status") + machine.status_text("clients") + machine.status_text("garden");
	EXPECT_EQ(upgrade(), 2);
	EXPECT_TRUE(says("no command of cpctl would set this again: the logout address 'odd' of wlan-1-1")) << err;
	expect_untouched();
	EXPECT_EQ(upgrade({"--force"}), 0) << err;
	EXPECT_EQ(text_of_file(kept), saved);
}

} // namespace

} // namespace captive_portal::test
