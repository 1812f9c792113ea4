#include "networking/reachability.hpp"

#include <exception>
#include <utility>
#include <vector>

#include "core/logger.hpp"

namespace orvanta {

std::string_view toString(ReachabilityError error) {
  switch (error) {
    case ReachabilityError::failedToCreateWithAddress:
      return "failedToCreateWithAddress";
    case ReachabilityError::failedToCreateWithHostname:
      return "failedToCreateWithHostname";
    case ReachabilityError::unableToSetCallback:
      return "unableToSetCallback";
    case ReachabilityError::unableToSetDispatchQueue:
      return "unableToSetDispatchQueue";
    case ReachabilityError::unableToGetInitialFlags:
      return "unableToGetInitialFlags";
  }
  return "";
}

std::string_view description(Reachability::Connection connection) {
  switch (connection) {
    case Reachability::Connection::none:
      return "No Connection";
    case Reachability::Connection::wifi:
      return "WiFi";
    case Reachability::Connection::cellular:
      return "Cellular";
  }
  return "";
}

std::string_view description(Reachability::NetworkStatus status) {
  switch (status) {
    case Reachability::NetworkStatus::notReachable:
      return "No Connection";
    case Reachability::NetworkStatus::reachableViaWiFi:
      return "WiFi";
    case Reachability::NetworkStatus::reachableViaWWAN:
      return "Cellular";
  }
  return "";
}

std::shared_ptr<Reachability> Reachability::make(Dependencies dependencies) {
  if (!dependencies.monitor || !dependencies.mainQueue) {
    return nullptr;
  }
  return std::make_shared<Reachability>(Passkey{}, std::move(dependencies));
}

Reachability::Reachability(Passkey, Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

Reachability::~Reachability() {
  stopNotifier();
}

void Reachability::setWhenReachable(NetworkReachable callback) {
  std::lock_guard lock(mutex_);
  whenReachable_ = std::move(callback);
}

void Reachability::setWhenUnreachable(NetworkUnreachable callback) {
  std::lock_guard lock(mutex_);
  whenUnreachable_ = std::move(callback);
}

bool Reachability::allowsCellularConnection() const {
  std::lock_guard lock(mutex_);
  return allowsCellularConnection_;
}

void Reachability::setAllowsCellularConnection(bool allows) {
  std::lock_guard lock(mutex_);
  allowsCellularConnection_ = allows;
}

Reachability::ObserverToken Reachability::addObserver(Observer observer) {
  std::lock_guard lock(mutex_);
  const ObserverToken token = nextObserverToken_++;
  observers_.emplace(token, std::move(observer));
  return token;
}

void Reachability::removeObserver(ObserverToken token) {
  std::lock_guard lock(mutex_);
  observers_.erase(token);
}

std::optional<ReachabilityError> Reachability::startNotifier() {
  {
    std::lock_guard lock(mutex_);
    if (notifierRunning_) {
      return std::nullopt;
    }
    notifierRunning_ = true;
  }
  std::weak_ptr<Reachability> weak = weak_from_this();
  const bool watching =
      dependencies_.monitor->startWatching([weak](const port::NetworkState& state) {
        if (auto self = weak.lock()) {
          self->reachabilityChanged(state);
        }
      });
  if (!watching) {
    stopNotifier();
    return ReachabilityError::unableToSetCallback;
  }
  // The monitor delivers on a thread of its own, so there is no queue to bind: the step that could
  // fail with `unableToSetDispatchQueue` does not exist here.
  const std::optional<port::NetworkState> initial = dependencies_.monitor->currentState();
  if (!initial) {
    stopNotifier();
    return ReachabilityError::unableToGetInitialFlags;
  }
  reachabilityChanged(*initial);
  return std::nullopt;
}

void Reachability::stopNotifier() {
  {
    std::lock_guard lock(mutex_);
    if (!notifierRunning_) {
      return;
    }
    notifierRunning_ = false;
  }
  dependencies_.monitor->stopWatching();
}

bool Reachability::isNotifierRunning() const {
  std::lock_guard lock(mutex_);
  return notifierRunning_;
}

bool Reachability::store(const port::NetworkState& state) {
  std::lock_guard lock(mutex_);
  if (flags_ == state) {
    return false;
  }
  flags_ = state;
  return true;
}

void Reachability::reachabilityChanged(const port::NetworkState& state) {
  {
    std::lock_guard lock(mutex_);
    if (!notifierRunning_) {
      return;
    }
  }
  if (store(state)) {
    notifyReachabilityChanged();
  }
}

void Reachability::notifyReachabilityChanged() {
  std::weak_ptr<Reachability> weak = weak_from_this();
  dependencies_.mainQueue->async([weak] {
    auto self = weak.lock();
    if (!self) {
      return;
    }
    const Connection now = self->connection();
    std::function<void(Reachability&)> callback;
    std::vector<Observer> observers;
    {
      std::lock_guard lock(self->mutex_);
      callback = now != Connection::none ? self->whenReachable_ : self->whenUnreachable_;
      observers.reserve(self->observers_.size());
      for (const auto& entry : self->observers_) {
        observers.push_back(entry.second);
      }
    }
    try {
      if (callback) {
        callback(*self);
      }
    } catch (...) {
      OrvantaLogger::error("Reachability callback failed");
    }
    for (const Observer& observer : observers) {
      try {
        observer(kReachabilityChangedNotification, *self);
      } catch (...) {
        OrvantaLogger::error("Reachability observer failed");
      }
    }
  });
}

Reachability::Connection Reachability::connectionFor(
    const std::optional<port::NetworkState>& state) const {
  if (!state || !state->available) {
    return Connection::none;
  }
  if (state->metered) {
    return allowsCellularConnection_ ? Connection::cellular : Connection::none;
  }
  return Connection::wifi;
}

Reachability::Connection Reachability::connection() {
  bool known = false;
  {
    std::lock_guard lock(mutex_);
    known = flags_.has_value();
  }
  if (!known) {
    // Read outside the lock: the monitor may be delivering a change that wants it.
    std::optional<port::NetworkState> read = dependencies_.monitor->currentState();
    std::lock_guard lock(mutex_);
    if (!flags_ && read) {
      flags_ = read;
    }
  }
  std::lock_guard lock(mutex_);
  return connectionFor(flags_);
}

Reachability::NetworkStatus Reachability::currentReachabilityStatus() {
  switch (connection()) {
    case Connection::none:
      return NetworkStatus::notReachable;
    case Connection::wifi:
      return NetworkStatus::reachableViaWiFi;
    case Connection::cellular:
      return NetworkStatus::reachableViaWWAN;
  }
  return NetworkStatus::notReachable;
}

std::string Reachability::currentReachabilityString() {
  return std::string(orvanta::description(currentReachabilityStatus()));
}

bool Reachability::isReachable() {
  return connection() != Connection::none;
}

std::string Reachability::description() const {
  std::lock_guard lock(mutex_);
  if (!flags_) {
    return "unavailable flags";
  }
  std::string text;
  text.push_back(flags_->available ? 'R' : '-');
  text.push_back(flags_->metered ? 'M' : '-');
  switch (flags_->connectivity) {
    case port::NetworkConnectivity::local:
      text.push_back('l');
      break;
    case port::NetworkConnectivity::limited:
      text.push_back('t');
      break;
    case port::NetworkConnectivity::portal:
      text.push_back('p');
      break;
    case port::NetworkConnectivity::full:
      text.push_back('f');
      break;
  }
  return text;
}

}  // namespace orvanta
