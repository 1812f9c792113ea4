#pragma once

#include <string>
#include <string_view>

namespace orvanta::testing {

/// A fresh folder under $TMPDIR (else /tmp), removed with everything in it on destruction.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  /// `path()` + "/" + `relative`.
  std::string file(std::string_view relative) const;

 private:
  std::string path_;
};

/// Writes `contents` to `path` (creating or truncating it), creating missing parent folders.
/// Fails the calling test when it can't.
void writeFile(const std::string& path, std::string_view contents);
/// The whole file; the empty string when it can't be read.
std::string readFile(const std::string& path);

}  // namespace orvanta::testing
