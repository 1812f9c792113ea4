#include "linux/gio/distributor_watch.hpp"

#include <string_view>
#include <utility>

#include "core/health.hpp"
#include "core/logger.hpp"

namespace orvanta::linux_platform {
namespace {

// Calls that may wait for the first answer about the owner; more are refused at once.
constexpr std::size_t kMaxWaiting = 64;

const char* senderOf(GDBusMethodInvocation* invocation) {
  const char* sender = g_dbus_method_invocation_get_sender(invocation);
  return sender != nullptr ? sender : "(no sender)";
}

void refuse(GDBusMethodInvocation* invocation, const std::string& why) {
  if (std::string_view(g_dbus_method_invocation_get_method_name(invocation)) == "Message") {
    health::count(health::Counter::pushesDroppedRefused);
  }
  OrvantaLogger::warning([&] {
    return std::string("Ignored a ") + g_dbus_method_invocation_get_method_name(invocation) +
           " call on the push connector from " + senderOf(invocation) + ": " + why;
  });
  g_dbus_method_invocation_return_dbus_error(
      invocation, "org.freedesktop.DBus.Error.AccessDenied",
      "only the push distributor the application registered with may call its connector");
}

}  // namespace

void DistributorWatch::watch(GDBusConnection* connection, const std::string& distributor) {
  if (connection == connection_ && distributor == distributor_ && connection != nullptr) {
    return;
  }
  if (subscription_ != 0) {
    g_dbus_connection_signal_unsubscribe(connection_, subscription_);
    subscription_ = 0;
  }
  if (connection != nullptr) {
    g_object_ref(connection);
  }
  if (connection_ != nullptr) {
    g_object_unref(connection_);
  }
  ++generation_;
  connection_ = connection;
  distributor_ = connection != nullptr ? distributor : std::string();
  known_ = false;
  owner_.clear();
  if (distributor_.empty()) {
    ownerKnown({});
    return;
  }
  // Subscribed before asking: a change after the answer arrives as a signal, one before it is in
  // the answer (the bus sends both in the order it handled them).
  ++subscriptions_;
  subscription_ = g_dbus_connection_signal_subscribe(
      connection_, "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", distributor_.c_str(), G_DBUS_SIGNAL_FLAGS_NONE,
      &DistributorWatch::onOwnerChanged, this,
      [](gpointer data) { --static_cast<DistributorWatch*>(data)->subscriptions_; });
  const auto generation = generation_;
  bus_.call(connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "GetNameOwner", g_variant_new("(s)", distributor_.c_str()), "(s)",
            [this, generation](GVariant* reply, const GError*) {
              if (generation != generation_) {
                return;
              }
              const gchar* owner = "";
              if (reply != nullptr) {
                g_variant_get(reply, "(&s)", &owner);
              }
              ownerKnown(owner);  // an error: nobody owns the name (yet)
            });
}

void DistributorWatch::stop() {
  watch(nullptr, {});
}

void DistributorWatch::onOwnerChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                      const gchar*, GVariant* parameters, gpointer data) {
  auto* self = static_cast<DistributorWatch*>(data);
  const gchar* name = nullptr;
  const gchar* oldOwner = nullptr;
  const gchar* newOwner = nullptr;
  if (!g_variant_is_of_type(parameters, variantType("(sss)"))) {
    return;
  }
  g_variant_get(parameters, "(&s&s&s)", &name, &oldOwner, &newOwner);
  if (self->distributor_ == name) {
    self->ownerKnown(newOwner);
  }
}

void DistributorWatch::ownerKnown(std::string owner) {
  owner_ = std::move(owner);
  known_ = true;
  while (!waiting_.empty()) {
    Waiting next = std::move(waiting_.front());
    waiting_.pop_front();
    decide(next.invocation, next.handle);
  }
}

void DistributorWatch::admit(GDBusMethodInvocation* invocation, Handle handle) {
  if (known_) {
    decide(invocation, handle);
  } else if (waiting_.size() >= kMaxWaiting) {
    refuse(invocation, "too many calls wait for the push distributor to be known");
  } else {
    waiting_.push_back({invocation, std::move(handle)});
  }
}

void DistributorWatch::decide(GDBusMethodInvocation* invocation, const Handle& handle) const {
  if (distributor_.empty()) {
    return refuse(invocation, "the application has no push distributor");
  }
  if (owner_.empty() || owner_ != senderOf(invocation)) {
    return refuse(invocation, "it is not the push distributor " + distributor_);
  }
  handle(invocation);
  // Nobody waits for an answer; one goes out all the same when the caller asked for it. Last:
  // the invocation owns the parameters `handle` read.
  g_dbus_method_invocation_return_value(invocation, nullptr);
}

}  // namespace orvanta::linux_platform
