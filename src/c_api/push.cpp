// The C interface's push functions, its delegate and its registration observer.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "c_api/gate.hpp"
#include "c_api/status.hpp"
#include "core/health.hpp"
#include "core/logger.hpp"
#include "orvanta/orvanta.h"
#include "orvanta/orvanta.hpp"
#include "orvanta/platform.hpp"

using orvanta::c_api::fail;
using orvanta::c_api::guarded;
using orvanta::c_api::HostData;
using orvanta::c_api::text;

struct orvanta_push_delegate {
  std::shared_ptr<HostData> host;
  orvanta_user_info_fn onReceive = nullptr;
  orvanta_user_info_fn onOpen = nullptr;
  orvanta_action_fn onAction = nullptr;
  orvanta_unreached_fn onUnreached = nullptr;
};

struct orvanta_registration_observer {
  std::shared_ptr<HostData> host;
  orvanta_token_fn onToken = nullptr;
  orvanta_token_fn onRegistered = nullptr;
  orvanta_failure_fn onFailed = nullptr;
};

struct orvanta_completion {
  std::function<void(bool)> complete;
};

namespace orvanta::c_api {
namespace {

/// One installation of a host's delegate or observer: the callbacks set when it was installed,
/// the host's data, and the gate that closes when it is replaced. The C++ listener the kit holds
/// captures it, so it lives until the kit's last call through that listener has returned.
template <class Handle>
struct Installation {
  explicit Installation(const Handle& handle) : callbacks(handle) {}
  const Handle callbacks;  ///< a copy of the handle as it was when installed (with its host data)
  Gate gate;

  /// Calls `call(userData)` unless the installation was replaced.
  template <class Call>
  void run(Call&& call) {
    gate.run([&] { call(callbacks.host->userData()); });
  }
};

/// What is installed now: the installation and the C++ listener made from it, which the kit holds
/// weakly and this holds strongly.
template <class Handle, class Listener>
struct Slot {
  std::mutex mutex;
  std::shared_ptr<Installation<Handle>> installation;
  std::shared_ptr<Listener> listener;

  /// Installs `next` (with `listener` made from it) through `install`, then closes the one it
  /// replaces. Let go of outside the lock, so that the host's release runs unlocked.
  template <class Install>
  void replace(std::shared_ptr<Installation<Handle>> next, std::shared_ptr<Listener> nextListener,
               Install install) {
    std::shared_ptr<Installation<Handle>> previous;
    std::shared_ptr<Listener> previousListener;
    {
      std::lock_guard lock(mutex);
      install(nextListener);
      previous = std::exchange(installation, std::move(next));
      previousListener = std::exchange(listener, std::move(nextListener));
    }
    if (previous) {
      previous->gate.close();
    }
  }
};

// Never destroyed: the kit's threads may still call through them at exit.
auto& delegateSlot = *new Slot<orvanta_push_delegate, OrvantaPushDelegate>();
auto& observerSlot = *new Slot<orvanta_registration_observer, OrvantaRegistrationObserver>();

std::shared_ptr<OrvantaPushDelegate> makeDelegate(
    const std::shared_ptr<Installation<orvanta_push_delegate>>& installation) {
  auto delegate = std::make_shared<OrvantaPushDelegate>();
  const auto& callbacks = installation->callbacks;
  if (auto call = callbacks.onReceive) {
    delegate->didRecieveNotificationWithUserInfo = [installation, call](const ValueMap& userInfo) {
      const std::string json = userInfoJson(userInfo);
      installation->run([&](void* userData) { call(userData, json.c_str()); });
    };
  }
  if (auto call = callbacks.onOpen) {
    delegate->didOpenNotificationWithUserInfo = [installation, call](const ValueMap& userInfo) {
      const std::string json = userInfoJson(userInfo);
      installation->run([&](void* userData) { call(userData, json.c_str()); });
    };
  }
  if (auto call = callbacks.onAction) {
    delegate->didClickOnActionButtonWithIdentifier = [installation, call](
                                                         const std::string& identifier,
                                                         const ValueMap& userInfo) {
      const std::string json = userInfoJson(userInfo);
      installation->run([&](void* userData) { call(userData, identifier.c_str(), json.c_str()); });
    };
  }
  if (auto call = callbacks.onUnreached) {
    delegate->unreachedNotificationIsAvailableToDisplay =
        [installation, call](const ValueMap& userInfo, std::function<void(bool)> completion) {
          const std::string json = userInfoJson(userInfo);
          auto* handle = new orvanta_completion{std::move(completion)};
          bool called = false;
          installation->run([&](void* userData) {
            called = true;
            call(userData, json.c_str(), handle);
          });
          if (!called) {
            delete handle;  // replaced meanwhile: nobody will complete it
          }
        };
  }
  return delegate;
}

std::shared_ptr<OrvantaRegistrationObserver> makeObserver(
    const std::shared_ptr<Installation<orvanta_registration_observer>>& installation) {
  auto observer = std::make_shared<OrvantaRegistrationObserver>();
  const auto& callbacks = installation->callbacks;
  if (auto call = callbacks.onToken) {
    observer->didReceiveToken = [installation, call](const std::string& token) {
      installation->run([&](void* userData) { call(userData, token.c_str()); });
    };
  }
  if (auto call = callbacks.onRegistered) {
    observer->didRegisterWithService = [installation,
                                        call](const std::optional<std::string>& token) {
      installation->run([&](void* userData) { call(userData, token ? token->c_str() : nullptr); });
    };
  }
  if (auto call = callbacks.onFailed) {
    observer->didFailToRegister = [installation, call](const Error& error) {
      const std::string description = error.localizedDescription();
      installation->run([&](void* userData) { call(userData, description.c_str()); });
    };
  }
  return observer;
}

port::NotificationResponse response(ValueMap userInfo, const char* actionIdentifier) {
  port::NotificationResponse response;
  response.notification.date = std::chrono::system_clock::now();
  response.notification.request.content.userInfo = std::move(userInfo);
  response.actionIdentifier =
      actionIdentifier != nullptr
          ? std::string(text(actionIdentifier, "action_identifier", kMaxName))
          : std::string(port::kDefaultActionIdentifier);
  return response;
}

}  // namespace
}  // namespace orvanta::c_api

extern "C" {

orvanta_status orvanta_push_register(void) {
  return guarded(__func__, [] {
    orvanta::Orvanta::push().registerForPushNotifications(
        orvanta::OrvantaPushOptions::defaultOptions());
  });
}

orvanta_status orvanta_push_unregister(void) {
  return guarded(__func__, [] { orvanta::Orvanta::push().unregisterForPushNotifications(); });
}

orvanta_status orvanta_push_did_register(const uint8_t* token, size_t length) {
  return guarded(__func__, [&] {
    if (token == nullptr) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT, "token is NULL");
    }
    if (length == 0 || length > orvanta::c_api::kMaxName) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT, "a token of " + std::to_string(length) +
                                               " bytes; from 1 to " +
                                               std::to_string(orvanta::c_api::kMaxName));
    }
    orvanta::Orvanta::push().didRegisterForRemoteNotifications(
        std::vector<std::uint8_t>(token, token + length));
  });
}

orvanta_status orvanta_push_did_fail_to_register(const char* reason) {
  return guarded(__func__, [&] {
    orvanta::Orvanta::push().didFailToRegisterForRemoteNotifications(
        orvanta::Error::custom(std::string(text(reason, "reason"))));
  });
}

orvanta_status orvanta_deliver_remote_notification(const char* payload_json) {
  return guarded(__func__, [&] {
    const auto json = text(payload_json, "payload_json");
    orvanta::ValueMap userInfo;
    try {
      userInfo = orvanta::c_api::jsonObject(json, "the payload");
    } catch (const orvanta::c_api::Failure& failure) {
      // A push that reached the kit and is none, counted and logged as the transports do.
      orvanta::health::count(orvanta::health::Counter::pushesReceived);
      orvanta::health::count(orvanta::health::Counter::pushesDroppedInvalid);
      orvanta::OrvantaLogger::error("Dropped a push message: " + failure.message);
      throw;
    }
    orvanta::deliverRemoteNotification(userInfo);
  });
}

orvanta_status orvanta_push_did_receive_response(const char* user_info_json,
                                                 const char* action_identifier) {
  return guarded(__func__, [&] {
    auto userInfo =
        orvanta::c_api::jsonObject(text(user_info_json, "user_info_json"), "the user info");
    orvanta::Orvanta::push().didReceiveNotificationResponse(
        orvanta::c_api::response(std::move(userInfo), action_identifier));
  });
}

// --- The delegate ---------------------------------------------------------------------------

orvanta_push_delegate* orvanta_push_delegate_new(void* user_data, orvanta_release_fn release) {
  orvanta_push_delegate* delegate = nullptr;
  guarded(__func__, [&] {
    auto host = std::make_shared<HostData>(user_data, release);
    delegate = new orvanta_push_delegate{std::move(host)};
  });
  return delegate;
}

void orvanta_push_delegate_on_receive(orvanta_push_delegate* delegate,
                                      orvanta_user_info_fn callback) {
  if (delegate != nullptr) {
    delegate->onReceive = callback;
  }
}

void orvanta_push_delegate_on_open(orvanta_push_delegate* delegate, orvanta_user_info_fn callback) {
  if (delegate != nullptr) {
    delegate->onOpen = callback;
  }
}

void orvanta_push_delegate_on_action(orvanta_push_delegate* delegate, orvanta_action_fn callback) {
  if (delegate != nullptr) {
    delegate->onAction = callback;
  }
}

void orvanta_push_delegate_on_unreached(orvanta_push_delegate* delegate,
                                        orvanta_unreached_fn callback) {
  if (delegate != nullptr) {
    delegate->onUnreached = callback;
  }
}

void orvanta_push_delegate_free(orvanta_push_delegate* delegate) {
  delete delegate;
}

orvanta_status orvanta_push_set_delegate(orvanta_push_delegate* delegate) {
  using namespace orvanta::c_api;
  return guarded(__func__, [&] {
    std::shared_ptr<Installation<orvanta_push_delegate>> installation;
    std::shared_ptr<orvanta::OrvantaPushDelegate> listener;
    if (delegate != nullptr) {
      installation = std::make_shared<Installation<orvanta_push_delegate>>(*delegate);
      listener = makeDelegate(installation);
    }
    delegateSlot.replace(std::move(installation), std::move(listener),
                         [](const auto& next) { orvanta::Orvanta::push().setDelegate(next); });
  });
}

void orvanta_completion_complete(orvanta_completion* completion, bool displayed) {
  if (completion == nullptr) {
    return;
  }
  guarded(__func__, [&] {
    if (completion->complete) {
      completion->complete(displayed);
    }
  });
  delete completion;
}

// --- The registration observer --------------------------------------------------------------

orvanta_registration_observer* orvanta_registration_observer_new(void* user_data,
                                                                 orvanta_release_fn release) {
  orvanta_registration_observer* observer = nullptr;
  guarded(__func__, [&] {
    auto host = std::make_shared<HostData>(user_data, release);
    observer = new orvanta_registration_observer{std::move(host)};
  });
  return observer;
}

void orvanta_registration_observer_on_token(orvanta_registration_observer* observer,
                                            orvanta_token_fn callback) {
  if (observer != nullptr) {
    observer->onToken = callback;
  }
}

void orvanta_registration_observer_on_registered(orvanta_registration_observer* observer,
                                                 orvanta_token_fn callback) {
  if (observer != nullptr) {
    observer->onRegistered = callback;
  }
}

void orvanta_registration_observer_on_failed(orvanta_registration_observer* observer,
                                             orvanta_failure_fn callback) {
  if (observer != nullptr) {
    observer->onFailed = callback;
  }
}

void orvanta_registration_observer_free(orvanta_registration_observer* observer) {
  delete observer;
}

orvanta_status orvanta_push_set_registration_observer(orvanta_registration_observer* observer) {
  using namespace orvanta::c_api;
  return guarded(__func__, [&] {
    std::shared_ptr<Installation<orvanta_registration_observer>> installation;
    std::shared_ptr<orvanta::OrvantaRegistrationObserver> listener;
    if (observer != nullptr) {
      installation = std::make_shared<Installation<orvanta_registration_observer>>(*observer);
      listener = makeObserver(installation);
    }
    observerSlot.replace(std::move(installation), std::move(listener), [](const auto& next) {
      orvanta::Orvanta::push().setRegistrationObserver(next);
    });
  });
}

}  // extern "C"
