// Method exchange on classes, the building blocks of the delegate interception. Objective-C++.
//
// These functions change classes for the whole process. They are meant for the thread that
// installs delegates (the application's main thread) and are not safe against concurrent calls
// on the same classes, nor against calls made concurrently to the methods they exchange.
#pragma once

#include <objc/runtime.h>

#include "objc/runtime_compat.h"

namespace orvanta::objc {

/// Installs the source class's instance method `sourceSelector` into `targetClass`:
/// - when `targetClass` has no instance method `targetSelector` (own or inherited), the source
///   implementation is added under `targetSelector` and nothing else changes: there is no host
///   implementation to forward to;
/// - otherwise the source implementation is added under `sourceSelector` (nothing when the class
///   already has that selector) and the implementations of the two selectors are exchanged, so
///   that `targetSelector` runs the source's code and `sourceSelector` the former one. Doing this
///   a second time exchanges them back.
/// One exception keeps a call from forwarding to itself: when `targetSelector` already runs the
/// source implementation and the class has no `sourceSelector` (an earlier call only added the
/// method), nothing changes.
/// Nothing happens when either class is Nil or the source class has no such method.
void exchangeImplementations(Class sourceClass, SEL sourceSelector, Class targetClass,
                             SEL targetSelector);

/// Patches the first of `candidates`, in order, that overrides `platformSelector` (its
/// implementation differs from its superclass's) with `exchangeImplementations(sourceClass,
/// sdkSelector, candidate, platformSelector)`; when none does, patches `fallbackClass`.
void exchangeImplementationsInProperClass(SEL sdkSelector, SEL platformSelector,
                                          const ClassList& candidates, Class sourceClass,
                                          Class fallbackClass);

/// True when the class's instance implementation of `selector` differs from its superclass's
/// (a class with no superclass is compared with no implementation at all).
bool checkIfInstanceOverridesSelector(Class cls, SEL selector);

/// True when the class has an instance method for `selector`, its own or inherited.
bool checkIfOriginalClassHasAlreadyImplementedSelector(Class cls, SEL selector);

/// The class itself when it declares conformance to `protocol`, else the nearest superclass that
/// does. When no ancestor conforms, the class just below the root class (the class itself when
/// it is a direct subclass of the root); Nil only for a root class that does not conform, or Nil.
Class getClassWithProtocolInHierarchy(Class cls, Protocol* protocol);

/// Every class of the runtime's class list that is `parent` or descends from it, in the order
/// of that list (`parent` included). Empty for Nil.
ClassList ClassGetSubclasses(Class parent);

}  // namespace orvanta::objc
