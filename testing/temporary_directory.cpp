#include "testing/temporary_directory.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace orvanta::testing {

TemporaryDirectory::TemporaryDirectory() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern =
      std::string((base != nullptr && base[0] == '/') ? base : "/tmp") + "/orvanta-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (::mkdtemp(buffer.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed for " + pattern);
  }
  path_ = buffer.data();
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  // Folders made read-only by a test would stop the removal; give them back their permissions.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
       !ignored && it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ignored);
    }
  }
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryDirectory::file(std::string_view relative) const {
  return path_ + "/" + std::string(relative);
}

void writeFile(const std::string& path, std::string_view contents) {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  out.close();
  ASSERT_TRUE(out.good()) << "could not write " << path;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace orvanta::testing
