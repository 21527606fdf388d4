// Runs a fuzz target on the named files and on the files of the named directories, in the order of their
// names. Works with any compiler. A broken property aborts, as it does under the fuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Path = std::filesystem::path;

std::vector<Path> CollectFiles(const Path& place) {
  // A target for which the fuzzer found nothing has no corpus directory.
  if (!std::filesystem::exists(place)) return {};
  if (!std::filesystem::is_directory(place)) return {place};
  std::vector<Path> files;
  for (const auto& entry : std::filesystem::directory_iterator(place)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool Replay(const Path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
  if (in.bad() || !in.is_open()) {
    std::fprintf(stderr, "Could not read %s\n", file.c_str());
    return false;
  }
  // Printed first, so that the last line names the input that broke a property.
  std::printf("%s\n", file.c_str());
  std::fflush(stdout);
  return LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const Path& file : CollectFiles(argv[i])) {
      if (!Replay(file)) return 1;
      ++count;
    }
  }
  std::printf("%zu inputs\n", count);
  if (count == 0) std::fprintf(stderr, "There is nothing to replay\n");
  return count == 0 ? 1 : 0;
}
