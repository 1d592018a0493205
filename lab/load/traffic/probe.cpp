#include "probe.h"

#include "shared.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sched.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace load
{

namespace
{

constexpr char name_space[] = "/run/netns/client-1-14", target[] = "192.168.100.252";
constexpr unsigned patience = 5000, interval = 10000; // milliseconds, microseconds

uint64_t microseconds()
{
	timespec now;
	clock_gettime(CLOCK_MONOTONIC, &now);
	return uint64_t(now.tv_sec) * 1000000 + uint64_t(now.tv_nsec) / 1000;
}

uint16_t checksum(const icmphdr &header)
{
	const auto *words = reinterpret_cast<const uint16_t *>(&header);
	uint32_t total = 0;
	for (unsigned i = 0; i < sizeof(header) / 2; ++i)
		total += words[i];
	total = (total & 0xffff) + (total >> 16);
	return uint16_t(~(total + (total >> 16)));
}

} // namespace

Probe::Probe() : shared(make_shared_memory<Shared>())
{
	process = fork();
	if (process < 0)
		throw_errno("a process for the probe");
	if (process)
		return;
	int status = 1;
	try {
		ping_for_ever();
		status = 0;
	} catch (const Trouble &trouble) {
		printf("    the probe: %s\n", trouble.what());
		fflush(stdout);
	}
	_exit(status);
}

Probe::~Probe()
{
	shared.must_end = true;
	if (process > 0)
		waitpid(process, nullptr, 0);
}

void Probe::ping_for_ever()
{
	int home = open(name_space, O_RDONLY);
	if (home < 0 || setns(home, CLONE_NEWNET))
		throw_errno(name_space);
	int wire = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
	sockaddr_in to{};
	to.sin_family = AF_INET;
	inet_pton(AF_INET, target, &to.sin_addr);
	if (wire < 0 || connect(wire, reinterpret_cast<sockaddr *>(&to), sizeof(to)))
		throw_errno("a socket for pings");
	for (uint16_t number = 1; !shared.must_end; ++number) {
		while (shared.is_paused && !shared.must_end)
			usleep(interval);
		Times &times = shared.is_loaded ? shared.loaded : shared.idle;
		icmphdr echo{};
		echo.type = ICMP_ECHO;
		echo.un.echo.sequence = htons(number);
		echo.checksum = checksum(echo);
		uint64_t began = microseconds();
		if (send(wire, &echo, sizeof(echo), 0) != sizeof(echo))
			throw_errno("a ping");
		bool is_answered = false;
		for (pollfd waiting{wire, POLLIN, 0}; !is_answered && poll(&waiting, 1, patience) == 1;) {
			uint8_t answer[256];
			ssize_t size = recv(wire, answer, sizeof(answer), 0);
			auto *header = reinterpret_cast<icmphdr *>(answer + 20);
			is_answered = size >= 28 && header->type == ICMP_ECHOREPLY &&
				      header->un.echo.sequence == echo.un.echo.sequence;
		}
		if (!is_answered)
			++times.unanswered;
		else if (times.count < most)
			times.of[times.count++] = uint32_t(std::min<uint64_t>(microseconds() - began, UINT32_MAX));
		usleep(interval);
	}
}

Probe::Outcome Probe::finish(bool tells_times)
{
	shared.must_end = true;
	int status;
	if (waitpid(process, &status, 0) != process || status != 0)
		throw Trouble("the probe has ended badly");
	process = 0;
	printf("    %-34s %10s %10s %10s %10s %10s\n", "a ping's answer, microseconds", "answers", "p50", "p99", "max",
	       "none");
	print("without load", shared.idle, tells_times);
	print("under load", shared.loaded, tells_times);
	if (shared.idle.count == 0 || shared.loaded.count == 0)
		throw Trouble("the probe got no answers");
	return {uint64_t(shared.idle.unanswered) + shared.loaded.unanswered, shared.loaded.at(0.5)};
}

uint32_t Probe::Times::at(double part) const
{
	return count ? of[size_t(std::floor(part * (count - 1)))] : 0;
}

void Probe::print(const char *when, Times &times, bool tells_times)
{
	uint32_t count = times.count;
	std::sort(times.of, times.of + count);
	if (tells_times)
		printf("    %-34s %10u %10u %10u %10u %10u\n", when, count, times.at(0.5), times.at(0.99), times.at(1),
		       unsigned(times.unanswered));
	else
		printf("    %-34s %10u %10s %10s %10s %10u\n", when, count, "-", "-", "-", unsigned(times.unanswered));
}

} // namespace load
