#pragma once

#include <optional>
#include <string>

#include "core/os.hpp"

namespace orvanta::detail {

/// What a bundle whose resources are plain files can add to `port::Bundle`: the lookup and the
/// file's identity from a single look at the file system. The credentials are looked up for every
/// request, and the second look was a fair part of what building one cost.
class ResourceFiles {
 public:
  struct Found {
    std::string path;
    os::FileIdentity identity;
  };

  /// The file of resource `name` of type `type` and its identity, when it exists and is no
  /// folder: what `port::Bundle::pathForResource` answers, with the identity of the same file.
  virtual std::optional<Found> resourceFile(const std::string& name, const std::string& type) = 0;

 protected:
  ~ResourceFiles() = default;
};

}  // namespace orvanta::detail
