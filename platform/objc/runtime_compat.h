// The only place where the two Objective-C runtimes the interception is built for differ.
//
// Everything else uses the runtime functions both offer (class_getInstanceMethod,
// class_addMethod, method_exchangeImplementations, class_conformsToProtocol, objc_getClassList,
// class_respondsToSelector, class_getMethodImplementation...) and a root class of our own, so
// no class library beyond the runtime is needed.
#pragma once

#include <objc/runtime.h>

#include <functional>
#include <vector>

/// Presentation options as the platform passes them: an unsigned word of option bits.
typedef unsigned long OrvantaPresentationOptionsValue;

#if defined(__BLOCKS__)
// Runtimes with blocks: the platform's completion handlers are blocks.
typedef void (^OrvantaPresentationCompletionHandler)(OrvantaPresentationOptionsValue options);
typedef void (^OrvantaResponseCompletionHandler)(void);
#else
// GCC's runtime has no blocks. A completion handler is a pointer to a callable that the caller
// keeps alive for the duration of the delegate call (a callee that keeps it copies the callable,
// as it would copy a block).
typedef const std::function<void(OrvantaPresentationOptionsValue)>*
    OrvantaPresentationCompletionHandler;
typedef const std::function<void()>* OrvantaResponseCompletionHandler;
#endif

namespace orvanta::objc {

inline void callCompletionHandler(OrvantaPresentationCompletionHandler handler,
                                  OrvantaPresentationOptionsValue options) {
#if defined(__BLOCKS__)
  if (handler) {
    handler(options);
  }
#else
  if (handler != nullptr && *handler) {
    (*handler)(options);
  }
#endif
}

inline void callCompletionHandler(OrvantaResponseCompletionHandler handler) {
#if defined(__BLOCKS__)
  if (handler) {
    handler();
  }
#else
  if (handler != nullptr && *handler) {
    (*handler)();
  }
#endif
}

/// A class in a list of classes. GCC's Objective-C++ front end rejects containers of `Class`
/// (it sees `struct objc_class` as incomplete where the container subtracts pointers), so lists
/// of classes hold this wrapper on every runtime.
struct ClassRef {
  Class cls;
  friend bool operator==(ClassRef a, ClassRef b) { return a.cls == b.cls; }
};
using ClassList = std::vector<ClassRef>;

}  // namespace orvanta::objc
