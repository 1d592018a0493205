// load_traffic --sample FILE [--seconds N | --frames N] [--seed N] [--connections N] [--times told|untold]
//
// In a machine of the lab, between the cables that lab/load/load.sh has laid: fills every table of the module, sends
// frames of every kind as fast as it can, and holds each against what the module has been told.
// Exit status: 0 if everything was right, 1 if not, 2 if it could not be tried.

#include "session.h"

#include <cstdio>
#include <exception>

namespace
{

constexpr int right = 0, wrong = 1, not_tried = 2;

// False for a word that nobody knows. A number that is none throws.
bool read_words(int count, char **words, load::Options &options)
{
	for (int i = 1; i + 1 < count; i += 2) {
		std::string name = words[i], value = words[i + 1];
		if (name == "--sample")
			options.sample = value;
		else if (name == "--seconds")
			options.seconds = unsigned(std::stoul(value));
		else if (name == "--frames")
			options.frames = std::stoull(value);
		else if (name == "--seed")
			options.seed = std::stoull(value);
		else if (name == "--connections")
			options.connections = unsigned(std::stoul(value));
		else if (name == "--times")
			options.tells_times = value == "told";
		else
			return false;
	}
	return count % 2 == 1 && !options.sample.empty();
}

} // namespace

int main(int count, char **words)
{
	// Other processes print as well.
	setvbuf(stdout, nullptr, _IOLBF, 0);
	try {
		load::Options options;
		if (!read_words(count, words, options)) {
			fprintf(stderr, "usage: load_traffic --sample FILE [--seconds N | --frames N] [--seed N] "
					"[--connections N] "
					"[--times told|untold]\n");
			return not_tried;
		}
		return load::run(options) ? right : wrong;
	} catch (const std::exception &trouble) {
		printf("WRONG: %s\n", trouble.what());
		return wrong;
	}
}
