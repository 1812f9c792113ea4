#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace orvanta {

/// A background thread the kit owns: it has a name, starts when it is made and is joined by its
/// owner, never detached.
///
/// The one rule for a thread whose owner is released from the thread's own work (the last
/// reference to a queue dropped inside one of its work items, an HTTP client released by one of
/// its completions): it cannot join itself, so `join` hands it over instead. The thread finishes
/// the work it is in, returns, and is joined by the next owned thread joined elsewhere, or at the
/// latest when the process exits. Its body must therefore only touch state it shares ownership of
/// (a `std::shared_ptr` it captured), never the object that owned it.
class OwnedThread {
 public:
  OwnedThread() = default;
  /// Starts `body` on a new thread named `name` (up to 15 bytes are shown on Linux).
  OwnedThread(std::string name, std::function<void()> body);
  /// Joins, as `join` does.
  ~OwnedThread();
  OwnedThread(OwnedThread&& other) noexcept = default;
  OwnedThread& operator=(OwnedThread&& other) noexcept;
  OwnedThread(const OwnedThread&) = delete;
  OwnedThread& operator=(const OwnedThread&) = delete;

  /// True on the thread itself.
  bool isCurrent() const { return thread_.get_id() == std::this_thread::get_id(); }
  bool joinable() const { return thread_.joinable(); }

  /// Waits for the thread to end; on the thread itself, hands it over (see above). Afterwards the
  /// object holds no thread. Any thread.
  void join();

 private:
  std::thread thread_;
  std::shared_ptr<std::atomic<bool>> finished_;
};

}  // namespace orvanta
