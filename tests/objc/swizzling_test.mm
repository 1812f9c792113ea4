// The method-exchange functions on their own, on small class hierarchies of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <objc/runtime.h>

#include <memory>
#include <ostream>
#include <vector>

#include "objc/delegate_interception.h"
#include "objc/swizzling.h"

// SwzTop > SwzMiddle > SwzBottom
@interface SwzTop : OrvantaObjcObject
@end
@interface SwzMiddle : SwzTop
@end
@interface SwzBottom : SwzMiddle
@end

@implementation SwzTop
@end
@implementation SwzMiddle
@end
@implementation SwzBottom
@end

/// `value` answers who runs it; the kit's version answers 100 and the target's own 1 or 2.
@interface SwzDonor : OrvantaObjcObject
- (int)kitValue;
@end
@interface SwzTarget : OrvantaObjcObject
- (int)value;
@end
/// Unused until the exchange on SwzTarget has happened.
@interface SwzBystander : OrvantaObjcObject
- (int)value;
@end
// A base with `value`, a subclass that inherits it and two that override it.
@interface SwzValueBase : OrvantaObjcObject
- (int)value;
@end
@interface SwzInherits : SwzValueBase
@end
@interface SwzOverridesFirst : SwzValueBase
@end
@interface SwzOverridesSecond : SwzValueBase
@end

@implementation SwzDonor
- (int)kitValue {
  return 100;
}
@end
@implementation SwzTarget
- (int)value {
  return 1;
}
@end
@implementation SwzBystander
- (int)value {
  return 7;
}
@end
@implementation SwzValueBase
- (int)value {
  return 1;
}
@end
@implementation SwzInherits
@end
@implementation SwzOverridesFirst
- (int)value {
  return 2;
}
@end
@implementation SwzOverridesSecond
- (int)value {
  return 3;
}
@end

namespace orvanta::objc {

void PrintTo(ClassRef entry, std::ostream* out) {
  *out << (entry.cls != nullptr ? class_getName(entry.cls) : "Nil");
}

namespace {

/// The answer of `selector` (an `int` method) on a fresh instance of `cls`.
int call(Class cls, SEL selector) {
  id object = [class_createInstance(cls, 0) init];
  using Function = int (*)(id, SEL);
  // Through a plain function pointer type, which converts to and from any other.
  using Plain = void (*)();
  const int answer = reinterpret_cast<Function>(
      reinterpret_cast<Plain>(class_getMethodImplementation(cls, selector)))(object, selector);
  [object dispose];
  return answer;
}

TEST(ClassGetSubclasses, TheParentAndItsDescendantsInTheRuntimesListOrder) {
  const int count = objc_getClassList(nullptr, 0);
  std::unique_ptr<Class[]> all(new Class[static_cast<std::size_t>(count)]);
  objc_getClassList(all.get(), count);
  ClassList expected;
  for (int i = 0; i < count; ++i) {
    Class cls = all[static_cast<std::size_t>(i)];
    if (cls == [SwzTop class] || cls == [SwzMiddle class] || cls == [SwzBottom class]) {
      expected.push_back({cls});
    }
  }
  ASSERT_EQ(expected.size(), 3u);
  EXPECT_EQ(ClassGetSubclasses([SwzTop class]), expected);
  EXPECT_THAT(ClassGetSubclasses([SwzBottom class]),
              ::testing::ElementsAre(ClassRef{[SwzBottom class]}));
  EXPECT_TRUE(ClassGetSubclasses(nullptr).empty());
}

// Exchanging, adding and undoing on delegate classes is covered through the interception in
// application_delegate_test.mm and notification_center_delegate_test.mm.
TEST(ExchangeImplementations, LeavesClassesOutsideTheExchangeAlone) {
  exchangeImplementations([SwzDonor class], @selector(kitValue), [SwzTarget class],
                          @selector(value));
  EXPECT_EQ(call([SwzTarget class], @selector(value)), 100);
  EXPECT_EQ(call([SwzTarget class], @selector(kitValue)), 1) << "the target's own, moved";
  // Asked before any instance of it has dispatched a message, a class unrelated to the exchange
  // still answers its own implementation.
  EXPECT_EQ(
      class_getMethodImplementation([SwzBystander class], @selector(value)),
      method_getImplementation(class_getInstanceMethod([SwzBystander class], @selector(value))));
  EXPECT_EQ(call([SwzDonor class], @selector(kitValue)), 100) << "the donor is left alone";
}

TEST(ExchangeImplementationsInProperClass, PatchesTheFirstOverridingCandidateInOrder) {
  const ClassList candidates = {{[SwzInherits class]},
                                {[SwzOverridesSecond class]},
                                {[SwzOverridesFirst class]},
                                {[SwzValueBase class]}};
  exchangeImplementationsInProperClass(@selector(kitValue), @selector(value), candidates,
                                       [SwzDonor class], [SwzValueBase class]);
  EXPECT_EQ(call([SwzOverridesSecond class], @selector(value)), 100);
  EXPECT_EQ(call([SwzOverridesFirst class], @selector(value)), 2);
  EXPECT_EQ(call([SwzValueBase class], @selector(value)), 1);
  EXPECT_EQ(call([SwzInherits class], @selector(value)), 1);
}

}  // namespace
}  // namespace orvanta::objc
