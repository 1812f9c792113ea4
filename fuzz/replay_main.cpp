// Runs a fuzz target's LLVMFuzzerTestOneInput once on every file of the folders (and on the
// files) named on the command line, so the corpus and the regressions replay under any compiler
// and any sanitizer. Exit status 0 when every input ran, 1 when a path cannot be read; a failing
// input ends the process through the target's own check or the sanitizer.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool runFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
    return false;
  }
  std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::fprintf(stderr, "replay: %s (%zu bytes)\n", path.c_str(), bytes.size());
  // A copy of exactly `size` bytes, so a read past the end is caught by AddressSanitizer.
  std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.empty() ? nullptr : input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  bool ok = true;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path(argv[i]);
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
        if (entry.is_regular_file()) {
          files.push_back(entry.path());
        }
      }
      std::sort(files.begin(), files.end());
      for (const auto& file : files) {
        ok = runFile(file) && ok;
        ++count;
      }
    } else if (std::filesystem::exists(path, error)) {
      ok = runFile(path) && ok;
      ++count;
    }
    // A missing folder (an empty regressions folder that version control dropped) is no input.
  }
  std::fprintf(stderr, "replay: %zu inputs\n", count);
  return ok ? 0 : 1;
}
