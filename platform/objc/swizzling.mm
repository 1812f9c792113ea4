#include "objc/swizzling.h"

#include <algorithm>
#include <memory>

namespace orvanta::objc {

void exchangeImplementations(Class sourceClass, SEL sourceSelector, Class targetClass,
                             SEL targetSelector) {
  if (sourceClass == nullptr || targetClass == nullptr) {
    return;
  }
  Method sourceMethod = class_getInstanceMethod(sourceClass, sourceSelector);
  if (sourceMethod == nullptr) {
    return;
  }
  IMP sourceImplementation = method_getImplementation(sourceMethod);
  const char* types = method_getTypeEncoding(sourceMethod);

  if (!checkIfOriginalClassHasAlreadyImplementedSelector(targetClass, targetSelector)) {
    class_addMethod(targetClass, targetSelector, sourceImplementation, types);
    return;
  }
  Method targetMethod = class_getInstanceMethod(targetClass, targetSelector);
  if (method_getImplementation(targetMethod) == sourceImplementation &&
      class_getInstanceMethod(targetClass, sourceSelector) == nullptr) {
    // Only added before: exchanging would leave the source code under both selectors, and its
    // forwarding would call itself.
    return;
  }
  class_addMethod(targetClass, sourceSelector, sourceImplementation, types);
  prepareForMethodExchange(targetClass);
  method_exchangeImplementations(targetMethod,
                                 class_getInstanceMethod(targetClass, sourceSelector));
}

void exchangeImplementationsInProperClass(SEL sdkSelector, SEL platformSelector,
                                          const ClassList& candidates, Class sourceClass,
                                          Class fallbackClass) {
  auto overriding = std::find_if(candidates.begin(), candidates.end(), [&](ClassRef candidate) {
    return checkIfInstanceOverridesSelector(candidate.cls, platformSelector);
  });
  Class target = fallbackClass;
  if (overriding != candidates.end()) {
    target = overriding->cls;
  }
  exchangeImplementations(sourceClass, sdkSelector, target, platformSelector);
}

bool checkIfInstanceOverridesSelector(Class cls, SEL selector) {
  // Unimplemented selectors give the runtime's forwarding implementation, the same for both;
  // a Nil superclass gives none.
  return class_getMethodImplementation(cls, selector) !=
         class_getMethodImplementation(class_getSuperclass(cls), selector);
}

bool checkIfOriginalClassHasAlreadyImplementedSelector(Class cls, SEL selector) {
  return class_getInstanceMethod(cls, selector) != nullptr;
}

Class getClassWithProtocolInHierarchy(Class cls, Protocol* protocol) {
  if (cls == nullptr) {
    return nullptr;
  }
  if (class_conformsToProtocol(cls, protocol)) {
    return cls;
  }
  Class superclass = class_getSuperclass(cls);
  if (superclass == nullptr) {
    return nullptr;
  }
  Class found = getClassWithProtocolInHierarchy(superclass, protocol);
  // Deliberately the class itself when no ancestor conforms: the walk ends on the class just
  // below the root.
  return found != nullptr ? found : cls;
}

ClassList ClassGetSubclasses(Class parent) {
  ClassList subclasses;
  if (parent == nullptr) {
    return subclasses;
  }
  const int count = objc_getClassList(nullptr, 0);
  if (count <= 0) {
    return subclasses;
  }
  std::unique_ptr<Class[]> buffer(new Class[static_cast<std::size_t>(count)]);
  // Classes registered in between are left out: the list is read once.
  const int fetched = std::min(count, objc_getClassList(buffer.get(), count));
  for (int i = 0; i < fetched; ++i) {
    Class cls = buffer[static_cast<std::size_t>(i)];
    for (Class walk = cls; walk != nullptr; walk = class_getSuperclass(walk)) {
      if (walk == parent) {
        subclasses.push_back(ClassRef{cls});
        break;
      }
    }
  }
  return subclasses;
}

}  // namespace orvanta::objc
