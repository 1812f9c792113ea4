// The only place where the two Objective-C runtimes the interception is built for differ (and
// where one of them needs help).
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

/// Readies `cls` (and its superclasses) for an exchange of their methods' implementations.
///
/// GCC's runtime stores an exchanged implementation in the dispatch table of each class that owns
/// one of the two methods. A class that has not dispatched an instance message yet has no table of
/// its own but the one shared by all such classes, so the exchange would make every class not used
/// yet answer that selector with that implementation. Asking the class for an implementation that
/// nothing defines builds its own table first. The other runtime needs nothing.
inline void prepareForMethodExchange(Class cls) {
#if defined(__GNU_LIBOBJC__)
  static const SEL kNeverDefined = sel_registerName("orvantaDispatchTableProbe");
  (void)class_getMethodImplementation(cls, kNeverDefined);
#else
  (void)cls;
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
