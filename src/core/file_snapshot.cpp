#include "core/file_snapshot.hpp"

#include <algorithm>
#include <utility>

namespace orvanta::detail {

const std::string* FileSnapshot::unchanged(const std::string& path,
                                           const os::FileIdentity& identity) const {
  if (!kept_ || !kept_->settled || kept_->path != path || !(kept_->identity == identity)) {
    return nullptr;
  }
  return &kept_->contents;
}

void FileSnapshot::remember(const std::string& path, const os::FileIdentity& identity,
                            std::string contents, std::chrono::system_clock::time_point readAt) {
  const std::int64_t lastChange =
      std::max(identity.modifiedNanoseconds, identity.changedNanoseconds);
  const std::int64_t read =
      std::chrono::duration_cast<std::chrono::nanoseconds>(readAt.time_since_epoch()).count();
  kept_ = Kept{path, identity, std::move(contents), lastChange + settleTime_.count() <= read};
}

}  // namespace orvanta::detail
