#include "core/future.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace orvanta {
namespace {

TEST(FutureTest, LateRegistrationIsCalledBeforeThenReturns) {
  auto future = Future<int>::resolved(7);
  std::vector<std::string> calls;
  future.then([&](const int& value) { calls.push_back("next " + std::to_string(value)); },
              [&](const Error&) { calls.push_back("error"); });
  EXPECT_EQ(calls, std::vector<std::string>{"next 7"});

  // Only the matching handler runs; a missing one means nothing runs.
  future.then(nullptr, [&](const Error&) { calls.push_back("error"); });
  Future<int>::rejected(Error::custom("x")).then([&](const int&) { calls.push_back("next"); });
  EXPECT_EQ(calls.size(), 1u);
}

TEST(FutureTest, EarlyRegistrationsRunOnceInOrderAndLaterCompletionsAreIgnored) {
  Promise<int> promise;
  std::vector<int> calls;
  promise.then([&](const int& value) { calls.push_back(value); });
  promise.then([&](const int& value) { calls.push_back(value * 10); });
  EXPECT_TRUE(calls.empty());
  EXPECT_FALSE(promise.isCompleted());

  promise.resolve(1);
  promise.resolve(2);
  promise.reject(Error::custom("late"));
  EXPECT_EQ(calls, (std::vector<int>{1, 10}));
  ASSERT_TRUE(promise.result().has_value());
  EXPECT_EQ(promise.result()->value(), 1);
}

TEST(FutureTest, AThrowingHandlerDoesNotStopTheOthers) {
  Promise<int> promise;
  int calls = 0;
  promise.then([](const int&) { throw std::runtime_error("handler"); });
  promise.then([&](const int&) { ++calls; });
  promise.resolve(3);
  EXPECT_EQ(calls, 1);
}

TEST(FutureTest, FlatMapChainsAndTurnsThrowsIntoRejections) {
  Promise<int> source;
  auto chained = source.flatMap(
      [](const int& value) { return Future<std::string>::resolved(std::to_string(value)); });
  auto throwsError =
      source.flatMap([](const int&) -> Future<Void> { throw Error::statusCode(404); });
  auto throwsException =
      source.flatMap([](const int&) -> Future<Void> { throw std::runtime_error("bad input"); });
  source.resolve(42);

  ASSERT_TRUE(chained.isCompleted());
  EXPECT_EQ(chained.result()->value(), "42");
  EXPECT_EQ(throwsError.result()->error(), Error::statusCode(404));
  EXPECT_EQ(throwsException.result()->error(), Error::custom("bad input"));

  // A failure of the source passes through without calling the transform.
  bool transformed = false;
  auto failed = Future<int>::rejected(Error::lastPushNotAvailable()).flatMap([&](const int&) {
    transformed = true;
    return Future<int>::resolved(0);
  });
  EXPECT_FALSE(transformed);
  EXPECT_EQ(failed.result()->error(), Error::lastPushNotAvailable());
}

TEST(FutureTest, FlatMapWaitsForTheInnerFuture) {
  Promise<int> source;
  Promise<std::string> inner;
  auto chained = source.flatMap([inner](const int&) -> Future<std::string> { return inner; });
  source.resolve(1);
  EXPECT_FALSE(chained.isCompleted());
  inner.reject(Error::custom("inner failed"));
  EXPECT_EQ(chained.result()->error(), Error::custom("inner failed"));
}

}  // namespace
}  // namespace orvanta
