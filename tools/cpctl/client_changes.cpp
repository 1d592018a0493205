// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_changes.h"

#include <algorithm>
#include <unordered_map>

#include "cpctl/failure.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

uint64_t number_of(const MacAddress &mac)
{
	uint64_t number = 0;
	for (const uint8_t octet : mac) {
		number = number << 8 | octet;
	}
	return number;
}

// How often each address is on each list.
class ListedClients
{
public:
	void read(const ReadStatusFile &read_status_file)
	{
		counts_.clear();
		for (const StatusLine &line : parse_status_lines(read_status_file("clients"))) {
			if (line.keyword() == "client") {
				const std::string interface = line.has("interface") ? line.text("interface") : "";
				++counts_[key(line.text("table"), interface, parse_mac(line.text("mac")))];
			}
		}
	}

	uint32_t &count(std::string_view table, std::string_view interface, const MacAddress &mac)
	{
		return counts_[key(table, interface, mac)];
	}
	uint32_t &count(const ClientChange &change) { return count(change.table->name, change.interface, change.mac); }

private:
	struct Key {
		uint64_t list;
		uint64_t mac;
		bool operator==(const Key &) const = default;
	};
	struct Hash {
		size_t operator()(const Key &key) const
		{
			constexpr uint64_t odd = 0x9e3779b97f4a7c15;
			return static_cast<size_t>((key.mac ^ key.list << 48) * odd >> 16);
		}
	};

	static Key key(std::string_view table, std::string_view interface, const MacAddress &mac)
	{
		const std::hash<std::string_view> hash;
		return {hash(table) * 31 + hash(interface), number_of(mac)};
	}

	std::unordered_map<Key, uint32_t, Hash> counts_;
};

constexpr std::string_view mirel_black = "mirel-black";

class Changes
{
public:
	Changes(const Session &session, std::span<const ClientChange> changes) : session_(session), changes_(changes)
	{
		// The first question opens the device: from then on nobody else changes what is read.
		(void)session.portal.gateway();
		expected_.read(session.read_status_file);
	}

	ChangedClients make(AfterFailure after_failure, Progress &progress)
	{
		size_t tried = 0;
		bool stopped = false;
		for (; tried < changes_.size() && !stopped; tried++) {
			try {
				make(changes_[tried]);
				progress.step();
			} catch (const Failure &failure) {
				if (failure.code() != ExitCode::refused) {
					throw;
				}
				failed_.push_back({tried, failure.what()});
				stopped = after_failure == AfterFailure::stop;
			}
		}
		verify(tried);
		if (already_listed_ != 0) {
			session_.note(std::to_string(already_listed_) +
				      (already_listed_ == 1 ? " client was" : " clients were") +
				      " listed already: no second entry made");
		}
		return {tried, std::move(failed_)};
	}

private:
	void make(const ClientChange &change)
	{
		uint32_t &count = expected_.count(change);
		if (change.kind == ClientChange::Kind::add) {
			add(change, count);
		} else {
			del(change, count);
		}
	}

	void add(const ClientChange &change, uint32_t &count)
	{
		const bool to_mirel_white = change.table->add == ADD_MIREL_WHITE_LIST_MAC;
		if (count != 0) {
			++already_listed_;
			if (to_mirel_white && mirel_black_count(change.mac) != 0) {
				session_.portal.change_clients(DEL_MIREL_BLACK_LIST_MAC, {}, change.mac);
				--mirel_black_count(change.mac);
			}
			return;
		}
		session_.portal.change_clients(change.table->add, change.interface, change.mac);
		++count;
		leave_mirel_black(change, to_mirel_white);
	}

	void del(const ClientChange &change, uint32_t &count)
	{
		if (count == 0) {
			throw refusal(change.text("is not in") + ": nothing to delete");
		}
		for (; count != 0; --count) {
			session_.portal.change_clients(change.table->del, change.interface, change.mac);
			leave_mirel_black(change, change.table->del == DEL_MIREL_WHITE_LIST_MAC);
		}
	}

	// Both commands of the white list take one entry off the black list.
	void leave_mirel_black(const ClientChange &change, bool leaves)
	{
		if (leaves && mirel_black_count(change.mac) != 0) {
			--mirel_black_count(change.mac);
		}
	}

	uint32_t &mirel_black_count(const MacAddress &mac) { return expected_.count(mirel_black, {}, mac); }

	void verify(size_t tried)
	{
		ListedClients stored;
		stored.read(session_.read_status_file);
		for (size_t index = 0; index < tried; index++) {
			const ClientChange &change = changes_[index];
			const bool wanted = expected_.count(change) != 0;
			if (wanted == (stored.count(change) != 0) || has_failed(index)) {
				continue;
			}
			failed_.push_back(
				{index, change.text(wanted ? "is not in" : "is still in") +
						" though the module took the command: see the kernel log (dmesg)"});
		}
		std::ranges::sort(failed_, {}, &FailedChange::index);
	}

	bool has_failed(size_t index) const
	{
		return std::ranges::find(failed_, index, &FailedChange::index) != failed_.end();
	}

	const Session &session_;
	std::span<const ClientChange> changes_;
	ListedClients expected_;
	std::vector<FailedChange> failed_;
	size_t already_listed_ = 0;
};

} // namespace

std::string ClientChange::text(std::string_view between) const
{
	return format_mac(mac) + " " + std::string(between) + " " + std::string(table->name) +
	       (interface.empty() ? "" : " of ") + interface;
}

ChangedClients change_clients(const Session &session, std::span<const ClientChange> changes, AfterFailure after_failure,
			      Progress &progress)
{
	return Changes(session, changes).make(after_failure, progress);
}

} // namespace cpctl
