// SPDX-License-Identifier: GPL-2.0-only
// Runs a fuzzer's target over files, without a fuzzer: seeds, and inputs that once broke something.
//
//	<target>_inputs DIRECTORY...
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argument_count, char **arguments)
{
	size_t files = 0;
	for (int i = 1; i < argument_count; ++i) {
		for (const auto &entry : std::filesystem::directory_iterator(arguments[i])) {
			std::fprintf(stderr, "%s\n", entry.path().c_str());
			std::ifstream stream(entry.path(), std::ios::binary);
			const std::vector<char> characters{std::istreambuf_iterator<char>(stream), {}};
			const std::vector<uint8_t> bytes(characters.begin(), characters.end());
			LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
			++files;
		}
	}
	std::printf("%zu inputs\n", files);
	return files == 0 ? 1 : 0;
}
