#pragma once

#include <pthread.h>

#include "testing/inbox.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace orvanta::testing {

inline std::string currentThreadName() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

}  // namespace orvanta::testing
