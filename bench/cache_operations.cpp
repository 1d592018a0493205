// SPDX-License-Identifier: GPL-2.0-only
// The address cache: lookups on the packet path, and all that walks it.
#include <algorithm>

#include "bench/frames.h"
#include "bench/states.h"
#include "garden/arecord_cache.h"
#include "garden/expiry_thread.h"

namespace captive_portal::bench
{

namespace
{

using test::ipv4;

constexpr auto unit = "cached addresses";
const std::vector<uint64_t> sizes = {1, 16, 256, 4096, ARECORD_LIMIT};
const std::vector<uint64_t> sizes_from_none = {0, 16, 256, 4096, ARECORD_LIMIT};
constexpr int64_t start_time = 1'700'000'000;

void prepare(Spread spread, uint64_t addresses)
{
	set_wall_clock(start_time);
	restart_module();
	fill_cache(spread, static_cast<uint32_t>(addresses));
}

// ---- Lookups ----

// A chain's length is a matter of luck.
constexpr uint32_t lookups_per_run = 32;

class LookupCase : public Case
{
public:
	LookupCase(Spread spread, uint32_t first, uint32_t count, bool present)
	    : spread_(spread), first_(first), count_(count), present_(present)
	{
	}
	// Other addresses each time, so that not one entry alone stays near the processor, and as many as make chances even.
	void run(uint32_t) override
	{
		for (uint32_t i = 0; i < lookups_per_run; ++i) {
			next_ = (next_ + 7919) % count_;
			found_ = match_dns_aRecord_garden_list(cached_address(spread_, first_ + next_), 0);
		}
	}
	void verify() override { require(found_ == present_, "a lookup found an address, or did not"); }

private:
	Spread spread_;
	uint32_t first_;
	uint32_t count_;
	bool present_;
	uint32_t next_ = 0;
	bool found_ = false;
};

std::unique_ptr<Case> lookup_cached(Spread spread, uint64_t addresses)
{
	prepare(spread, addresses);
	// The last of each bucket, or of the one.
	const uint32_t count = std::min<uint32_t>(static_cast<uint32_t>(addresses), ARECORD_BUCKETS);
	return std::make_unique<LookupCase>(spread, static_cast<uint32_t>(addresses) - count, count, true);
}

std::unique_ptr<Case> lookup_other(Spread spread, uint64_t addresses)
{
	prepare(spread, addresses);
	return std::make_unique<LookupCase>(spread, ARECORD_LIMIT, 1024, false);
}

// An unadmitted client's segment to an address that a permitted name resolved to, with every table of the garden full.
std::unique_ptr<Case> garden_frame(uint64_t addresses)
{
	prepare(Spread::over_all_buckets, addresses);
	fill_rules(full_row_rules, full_default_rules);
	set_all_portals(CP_MODE_ON);
	// The updates have asked the rules, which know none of the names; the last entry is permitted anew.
	const auto last = static_cast<uint32_t>(addresses) - 1;
	static constexpr char permitted[] = "permitted.shop.test";
	add_dns_arecord(arecord_bucket(cached_address(Spread::over_all_buckets, last)), 1,
			{permitted, sizeof(permitted) - 1}, cached_address(Spread::over_all_buckets, last),
			cached_seconds);
	constexpr Host client = {{0x02, 0x11, 1, 1, 1, 0}, ipv4(192, 168, 1, 11)};
	const Host server = {router, cached_address(Spread::over_all_buckets, last)};
	return std::make_unique<FrameCase>(
		FrameCaseParts{.hooks = forwarding,
			       .in_name = "wlan-1-1",
			       .frames = {frame().from(client).to(server).tcp(51000, 443).ack()},
			       .mark = cp_interface_mark(0)});
}

// ---- Walks ----

class ExpiryCase : public Case
{
public:
	ExpiryCase(Spread spread, uint64_t addresses, int64_t pass_time)
	    : spread_(spread), addresses_(static_cast<uint32_t>(addresses)), pass_time_(pass_time)
	{
		prepare(spread, addresses);
	}
	[[nodiscard]] uint32_t batch() const override { return 1; }
	void restore(uint32_t) override
	{
		set_wall_clock(start_time);
		if (total_ip_count == 0) {
			fill_cache(spread_, addresses_);
		}
		set_wall_clock(pass_time_);
	}
	void run(uint32_t) override { static_cast<void>(schedule_check_thread()); }
	void verify() override
	{
		const bool expired = pass_time_ > start_time + cached_seconds;
		require(total_ip_count == static_cast<int32_t>(expired ? 0 : addresses_),
			"a pass left the wrong number of addresses");
	}

private:
	Spread spread_;
	uint32_t addresses_;
	int64_t pass_time_;
};

constexpr int64_t before_deadline = start_time + 1;
constexpr int64_t behind_deadline = start_time + cached_seconds + 1;

class ProcCase : public Case
{
public:
	explicit ProcCase(uint64_t addresses) : addresses_(addresses), buffer_(size_t{8} << 20)
	{
		prepare(Spread::over_all_buckets, addresses);
	}
	[[nodiscard]] uint32_t batch() const override { return 1; }

protected:
	static void write_all()
	{
		static constexpr char all[] = "all";
		require(captive_portal_summary_write(reinterpret_cast<cp_user_address>(all), 3) == 3,
			"a write of the proc file failed");
	}
	void read()
	{
		int64_t position = 0;
		produced_ = captive_portal_summary_read(reinterpret_cast<cp_user_address>(buffer_.data()),
							buffer_.size(), &position);
	}

	uint64_t addresses_;
	std::vector<char> buffer_;
	long produced_ = 0;
};

class ProcRead : public ProcCase
{
public:
	using ProcCase::ProcCase;
	void restore(uint32_t) override { write_all(); }
	void run(uint32_t) override { read(); }
	void verify() override
	{
		require(produced_ > static_cast<long>(addresses_ * 100), "a read of the proc file showed too little");
	}
};

class ProcWrite : public ProcCase
{
public:
	using ProcCase::ProcCase;
	void restore(uint32_t) override { read(); }
	void run(uint32_t) override { write_all(); }
};

// ---- Rule updates ----

class UpdateCase : public Case
{
public:
	UpdateCase(Spread spread, uint64_t addresses, int32_t row) : record_(rules_of_row(row, full_row_rules))
	{
		restart_module();
		fill_rules(full_row_rules, full_default_rules);
		fill_cache(spread, static_cast<uint32_t>(addresses));
	}
	[[nodiscard]] uint32_t batch() const override { return 1; }
	void run(uint32_t) override { result_ = command(WALLED_GARDEN_IOCTL_SET, record_); }
	void verify() override { require(result_ == 0, "an update failed"); }

private:
	wg_cmd record_;
	long result_ = -1;
};

} // namespace

void add_cache_operations(std::vector<Operation> &list)
{
	const auto add = [&](const char *name, std::vector<uint64_t> of_sizes, auto make, uint64_t few_from = 4096) {
		list.push_back({.name = name,
				.unit = unit,
				.sizes = std::move(of_sizes),
				.make = make,
				.few_runs_from = few_from});
	};
	constexpr uint64_t always_many = ~uint64_t{0};
	add(
		"cache: 32 lookups of addresses", sizes,
		[](uint64_t size) { return lookup_cached(Spread::over_all_buckets, size); }, always_many);
	add(
		"cache: 32 lookups of others", sizes_from_none,
		[](uint64_t size) { return lookup_other(Spread::over_all_buckets, size); }, always_many);
	add("cache: 32 lookups, one bucket", sizes,
	    [](uint64_t size) { return lookup_cached(Spread::in_one_bucket, size); });
	add("cache: 32 lookups of others, one bucket", sizes_from_none,
	    [](uint64_t size) { return lookup_other(Spread::in_one_bucket, size); });
	add("unadmitted: garden by address", sizes, garden_frame, always_many);
	list.back().baseline = "three empty hooks";

	add("expiry pass, none stale", sizes_from_none, [](uint64_t size) {
		return std::make_unique<ExpiryCase>(Spread::over_all_buckets, size, before_deadline);
	});
	add("expiry pass, none stale, one bucket", sizes_from_none,
	    [](uint64_t size) { return std::make_unique<ExpiryCase>(Spread::in_one_bucket, size, before_deadline); });
	add("expiry pass, all stale", sizes_from_none, [](uint64_t size) {
		return std::make_unique<ExpiryCase>(Spread::over_all_buckets, size, behind_deadline);
	});
	add("expiry pass, all stale, one bucket", sizes_from_none,
	    [](uint64_t size) { return std::make_unique<ExpiryCase>(Spread::in_one_bucket, size, behind_deadline); });
	add("proc read", sizes_from_none, [](uint64_t size) { return std::make_unique<ProcRead>(size); });
	add("proc write", sizes_from_none, [](uint64_t size) { return std::make_unique<ProcWrite>(size); });
	const auto add_update = [&](const char *name, Spread spread, int32_t row) {
		const auto make = [=](uint64_t size) { return std::make_unique<UpdateCase>(spread, size, row); };
		add(name, sizes_from_none, make, 256);
	};
	add_update("UPDATE_RULE", Spread::over_all_buckets, 3);
	add_update("UPDATE_RULE, one bucket", Spread::in_one_bucket, 3);
	add_update("UPDATE_DEFAULT_RULE", Spread::over_all_buckets, -1);
}

} // namespace captive_portal::bench
