#include "summary_file.h"

#include "trouble.h"

#include <fcntl.h>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace load
{

namespace
{

constexpr char path[] = "/proc/cp_dns_aRecord/summary";

void select(const std::string &what)
{
	int file = open(path, O_WRONLY);
	if (file < 0 || write(file, what.data(), what.size()) != ssize_t(what.size()))
		throw_errno(path);
	close(file);
}

// One opening lists what fits the reader's buffer and was not shown before.
unsigned count_next()
{
	static std::vector<char> buffer(4 << 20);
	int file = open(path, O_RDONLY);
	if (file < 0)
		throw_errno(path);
	ssize_t size = read(file, buffer.data(), buffer.size());
	if (size < 0)
		throw_errno(path);
	close(file);
	std::string_view text(buffer.data(), size_t(size));
	unsigned count = 0;
	for (size_t at = text.find("]IP="); at != text.npos; at = text.find("]IP=", at + 1))
		++count;
	return count;
}

} // namespace

unsigned count_listed_addresses()
{
	select("all");
	unsigned total = 0;
	while (unsigned count = count_next())
		total += count;
	return total;
}

bool is_address_listed(uint32_t address)
{
	std::string text;
	for (int shift = 24; shift >= 0; shift -= 8)
		text += std::to_string(address >> shift & 255) + (shift ? "." : "");
	select(text);
	return count_next() != 0;
}

} // namespace load
