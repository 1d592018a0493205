#include "sample.h"

#include "trouble.h"

#include <fcntl.h>
#include <unistd.h>

namespace load
{

Sample::Sample(const std::string &path) : file(open(path.c_str(), O_WRONLY | O_CLOEXEC))
{
	if (file < 0)
		throw_errno(path);
}

Sample::~Sample()
{
	try {
		flush();
	} catch (const Trouble &) {
		// Who reads has ended and says why.
	}
	close(file);
}

void Sample::put(const void *data, unsigned size)
{
	if (filled + size > sizeof(buffer))
		flush();
	memcpy(buffer + filled, data, size);
	filled += size;
}

void Sample::flush()
{
	for (unsigned done = 0; done < filled;) {
		ssize_t written = write(file, buffer + done, filled - done);
		if (written <= 0)
			throw_errno("the sample's reader");
		done += unsigned(written);
	}
	filled = 0;
}

void Sample::frame(unsigned place, const Frame &in, unsigned out_place, unsigned seen_at, const Frame *out,
		   bool is_checked)
{
	Head head{'F', uint8_t(place), uint8_t(out_place), uint8_t(seen_at), in.length, uint16_t(out ? out->length : 0),
		  now, is_checked};
	put(&head, sizeof(head));
	put(in.bytes, in.length);
	if (out)
		put(out->bytes, out->length);
}

void Sample::command(unsigned number, const void *record, unsigned size)
{
	Head head{'C', uint8_t(number), 0, 0, uint16_t(size), 0, now, 0};
	put(&head, sizeof(head));
	put(record, size);
}

void Sample::pass()
{
	Head head{'P', 0, 0, 0, 0, 0, now, 0};
	put(&head, sizeof(head));
}

} // namespace load
