#include "linux/shared_library.hpp"

#include <dlfcn.h>

namespace orvanta::linux_platform {

SharedLibrary::SharedLibrary(const char* soname, const char* what, const char* requirement)
    : soname_(soname), requirement_(requirement) {
  // RTLD_NODELETE: these libraries keep state of their own (TLS engines, error queues) that must
  // outlive any use.
  handle_ = ::dlopen(soname, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (handle_ == nullptr) {
    const char* error = ::dlerror();
    why_ = std::string(what) + " could not be loaded: " + (error != nullptr ? error : soname);
  }
}

void* SharedLibrary::symbol(const char* name) {
  if (handle_ == nullptr) {
    return nullptr;
  }
  void* found = ::dlsym(handle_, name);
  if (found == nullptr && why_.empty()) {
    why_ = soname_ + " has no " + name + " (" + requirement_ + ")";
  }
  return found;
}

}  // namespace orvanta::linux_platform
