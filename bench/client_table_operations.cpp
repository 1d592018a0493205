// SPDX-License-Identifier: GPL-2.0-only
// What the daemon does with the client tables.
#include <cstring>

#include "bench/light_platform.h"
#include "bench/operation.h"
#include "bench/states.h"

namespace captive_portal::bench
{

namespace
{

constexpr auto unit = "clients in each list, commands";
const std::vector<uint64_t> sizes = {1, 16, 128, full_client_list};
constexpr uint32_t row = 10;
const std::string interface = interface_name(row);
// Numbers of clients that fill_clients() does not add.
constexpr uint32_t first_extra = 0x10000;

bool is_listed(const MacAddress &mac)
{
	gk_check_reply record{};
	record.cmd = CHECK_LOGIN_MAC;
	std::memcpy(record.iface, interface.c_str(), interface.size() + 1);
	std::memcpy(record.mac, mac.bytes, sizeof(record.mac));
	require(command(GATEKEEPER_IOCTL_CHECK, record) == 0, "a check failed");
	return record.found == 1;
}

MacAddress extra_client(uint32_t number)
{
	return client_mac(login_table, row, first_extra + number);
}

class ClientCase : public Case
{
public:
	explicit ClientCase(uint64_t clients) : clients_(static_cast<uint32_t>(clients))
	{
		restart_module();
		fill_clients(clients_);
	}
	[[nodiscard]] uint32_t batch() const override { return 8; }

protected:
	static void change(gk_set_command sub_command, uint32_t number)
	{
		change_clients(sub_command, interface, extra_client(number));
	}

	uint32_t clients_;
};

class AddCase : public ClientCase
{
public:
	using ClientCase::ClientCase;
	void restore(uint32_t) override
	{
		while (added_ > 0) {
			change(DEL_LOGIN_MAC, --added_);
		}
	}
	void run(uint32_t) override { change(ADD_LOGIN_MAC, added_++); }
	void verify() override { require(is_listed(extra_client(0)), "a client that was added is not listed"); }

private:
	uint32_t added_ = 0;
};

class DeleteCase : public ClientCase
{
public:
	using ClientCase::ClientCase;
	void restore(uint32_t runs) override
	{
		for (; present_ > 0; --present_) {
			change(DEL_LOGIN_MAC, present_ - 1);
		}
		for (; present_ < runs; ++present_) {
			change(ADD_LOGIN_MAC, present_);
		}
	}
	void run(uint32_t) override { change(DEL_LOGIN_MAC, --present_); }
	void verify() override { require(!is_listed(extra_client(0)), "a client that was deleted is listed"); }

private:
	uint32_t present_ = 0;
};

class CheckCase : public ClientCase
{
public:
	using ClientCase::ClientCase;
	[[nodiscard]] uint32_t batch() const override { return 64; }
	void run(uint32_t) override { found_ = is_listed(client_mac(login_table, row, clients_ - 1)); }
	void verify() override { require(found_, "the last client is not listed"); }

private:
	bool found_ = false;
};

class ListCase : public ClientCase
{
public:
	using ClientCase::ClientCase;
	void run(uint32_t) override
	{
		record_.cmd = GET_LOGIN_MAC;
		std::memcpy(record_.iface, interface.c_str(), interface.size() + 1);
		static_cast<void>(command(GATEKEEPER_IOCTL_GET, record_));
	}
	void verify() override { require(record_.count == clients_, "a list is not whole"); }

private:
	gk_list_reply record_{};
};

class FlushRowCase : public ClientCase
{
public:
	using ClientCase::ClientCase;
	[[nodiscard]] uint32_t batch() const override { return 1; }
	void restore(uint32_t) override
	{
		if (empty_) {
			for (const ClientTable &table : row_tables) {
				fill_list(table, row, clients_);
			}
		}
		empty_ = false;
	}
	void run(uint32_t) override
	{
		change_clients(FLUSH_CAPTIVE_PORTAL_TABLE, interface);
		empty_ = true;
	}
	void verify() override
	{
		require(!is_listed(client_mac(login_table, row, clients_ - 1)), "a flushed list is not empty");
	}

private:
	bool empty_ = false;
};

class FlushAllCase : public ClientCase
{
public:
	using ClientCase::ClientCase;
	[[nodiscard]] uint32_t batch() const override { return 1; }
	void restore(uint32_t) override
	{
		if (empty_) {
			restart_module();
			fill_clients(clients_);
		}
		empty_ = false;
	}
	void run(uint32_t) override
	{
		change_clients(FLUSH_CAPTIVE_PORTAL_TABLE, "all");
		empty_ = true;
	}
	void verify() override
	{
		require(!is_listed(client_mac(login_table, row, clients_ - 1)), "a flushed list is not empty");
	}

private:
	bool empty_ = false;
};

// All clients of five tables added, one command each.
class FillCase : public Case
{
public:
	explicit FillCase(uint64_t clients) : clients_(static_cast<uint32_t>(clients)) {}
	[[nodiscard]] uint32_t batch() const override { return 1; }
	void restore(uint32_t) override { restart_module(); }
	void run(uint32_t) override
	{
		for (uint32_t number = 0; number < CP_WIRELESS_INTERFACES; ++number) {
			for (const ClientTable &table : row_tables) {
				fill_list(table, number, clients_);
			}
		}
	}
	void verify() override
	{
		require(is_listed(client_mac(login_table, row, clients_ - 1)), "a client that was added is not listed");
	}

private:
	uint32_t clients_;
};

template <typename Kind> void add(std::vector<Operation> &list, const char *name, uint64_t few_runs_from = ~uint64_t{0})
{
	list.push_back({.name = name,
			.unit = unit,
			.sizes = sizes,
			.make = [](uint64_t size) { return std::make_unique<Kind>(size); },
			.few_runs_from = few_runs_from});
}

} // namespace

void add_client_table_operations(std::vector<Operation> &list)
{
	add<AddCase>(list, "client: add");
	add<DeleteCase>(list, "client: delete the last");
	add<CheckCase>(list, "client: check the last");
	add<ListCase>(list, "client: list a row");
	add<FlushRowCase>(list, "client: flush a row's five tables", 128);
	add<FlushAllCase>(list, "client: flush all", 128);
	add<FillCase>(list, "client: add all to 24 x 5 lists", 128);
}

} // namespace captive_portal::bench
