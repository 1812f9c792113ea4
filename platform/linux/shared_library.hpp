#pragma once

#include <string>

namespace orvanta::linux_platform {

/// A system library the kit loads when it first needs it rather than linking it, so that a launch
/// that never needs it pays nothing for it. Loaded for the life of the process: never unloaded.
class SharedLibrary {
 public:
  /// Loads `soname`, found as the dynamic linker finds any library. `what` names it in the
  /// reasons ("libcurl"); `requirement` says which version its functions come with.
  SharedLibrary(const char* soname, const char* what, const char* requirement);

  /// Sets `function` to the library's function `name`; the first one missing is said in `why`.
  template <class Function>
  void resolve(Function& function, const char* name) {
    function = reinterpret_cast<Function>(symbol(name));
  }

  /// Whether the library loaded and had every function asked for; the reason when not.
  bool complete() const { return why_.empty(); }
  const std::string& why() const { return why_; }

 private:
  void* symbol(const char* name);

  void* handle_ = nullptr;
  std::string soname_;
  std::string requirement_;
  std::string why_;
};

}  // namespace orvanta::linux_platform
