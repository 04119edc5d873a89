// replay of a fuzz target without a fuzzer: runs the target on each given file and on each file in
// the given folders.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path)) return {path};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(path)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

bool run(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> content{std::istreambuf_iterator<char>(stream), {}};
  if (stream.fail()) {
    std::fprintf(stderr, "%s cannot be read\n", file.c_str());
    return false;
  }
  std::fprintf(stderr, "%s\n", file.c_str());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  int runs = 0;
  for (int i = 1; i < count; ++i) {
    for (const auto& file : filesIn(arguments[i])) {
      if (!run(file)) return 1;
      ++runs;
    }
  }
  std::fprintf(stderr, "%d files\n", runs);
  return runs > 0 ? 0 : 1;
}
