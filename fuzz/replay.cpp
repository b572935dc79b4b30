// Runs a fuzz target on the files of the directories that are named: what the fuzzer found once
// stays found, with every compiler and on every processor.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argumentCount, char** arguments) {
  LLVMFuzzerInitialize(&argumentCount, &arguments);
  int inputs = 0;
  for (int index = 1; index < argumentCount; ++index) {
    std::set<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(arguments[index])) {
      if (entry.is_regular_file()) paths.insert(entry.path());
    }
    for (const auto& path : paths) {
      std::ifstream file(path, std::ios::binary);
      const std::string bytes{std::istreambuf_iterator<char>(file), {}};
      // The last one named is the one that failed.
      std::fprintf(stderr, "%s\n", path.c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++inputs;
    }
  }
  std::printf("%d inputs\n", inputs);
  return inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
