// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_changes.h"

#include <algorithm>
#include <map>
#include <utility>

#include "cpctl/client_lists.h"
#include "cpctl/failure.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

// How often each address is on each list.
class ListedClients
{
public:
	void read(const ReadStatusFile &read_status_file)
	{
		lists_.clear();
		for (const auto &[list, clients] : read_client_lists(read_status_file)) {
			for (const MacAddress &mac : clients) {
				++lists_[list][mac];
			}
		}
	}

	uint32_t &count(std::string_view table, std::string_view interface, const MacAddress &mac)
	{
		return lists_[{std::string(table), std::string(interface)}][mac];
	}
	uint32_t &count(const ClientChange &change) { return count(change.table->name, change.interface, change.mac); }

private:
	// By table and interface.
	std::map<std::pair<std::string, std::string>, std::map<MacAddress, uint32_t>> lists_;
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
		std::vector<bool> has_failed(tried);
		for (const FailedChange &failed : failed_) {
			has_failed[failed.index] = true;
		}
		for (size_t index = 0; index < tried; index++) {
			const ClientChange &change = changes_[index];
			const bool wanted = expected_.count(change) != 0;
			if (wanted == (stored.count(change) != 0) || has_failed[index]) {
				continue;
			}
			failed_.push_back(
				{index, change.text(wanted ? "is not in" : "is still in") +
						" though the module took the command: see the kernel log (dmesg)"});
		}
		std::ranges::sort(failed_, {}, &FailedChange::index);
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
