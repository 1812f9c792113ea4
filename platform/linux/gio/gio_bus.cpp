#include "linux/gio/gio_bus.hpp"

#include <memory>
#include <utility>

namespace orvanta::linux_platform {
namespace {

template <typename Done>
struct Pending {
  BusCalls* calls;
  Done done;
};

}  // namespace

void BusCalls::openConnection(const std::string& address, Opened done) {
  std::string found = address;
  if (found.empty()) {
    GError* error = nullptr;
    gchar* session = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable_, &error);
    if (session == nullptr) {
      const std::string why = error->message;
      g_error_free(error);
      return done(nullptr, why);
    }
    found = session;
    g_free(session);
  }
  ++pending_;
  g_dbus_connection_new_for_address(
      found.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, cancellable_,
      [](GObject*, GAsyncResult* result, gpointer data) {
        std::unique_ptr<Pending<Opened>> opening(static_cast<Pending<Opened>*>(data));
        BusCalls& calls = *opening->calls;
        GError* error = nullptr;
        GDBusConnection* connection = g_dbus_connection_new_for_address_finish(result, &error);
        --calls.pending_;
        if (calls.closing_) {
          if (connection != nullptr) {
            calls.closeConnection(connection);
          }
        } else {
          opening->done(connection, error != nullptr ? error->message : "");
        }
        if (error != nullptr) {
          g_error_free(error);
        }
      },
      new Pending<Opened>{this, std::move(done)});
}

void BusCalls::closeConnection(GDBusConnection* connection) {
  ++pending_;
  g_dbus_connection_close(
      connection, nullptr,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        g_dbus_connection_close_finish(reinterpret_cast<GDBusConnection*>(source), result, nullptr);
        --static_cast<BusCalls*>(data)->pending_;
      },
      this);
  g_object_unref(connection);
}

void BusCalls::call(GDBusConnection* connection, const char* destination, const char* path,
                    const char* interface, const char* method, GVariant* parameters,
                    const char* replyType, CallDone done) {
  if (connection == nullptr) {
    if (parameters != nullptr) {
      g_variant_unref(g_variant_ref_sink(parameters));
    }
    GError* error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_CLOSED, "connection closed");
    done(nullptr, error);
    g_error_free(error);
    return;
  }
  ++pending_;
  g_dbus_connection_call(
      connection, destination, path, interface, method, parameters,
      replyType != nullptr ? variantType(replyType) : nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
      cancellable_,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<Pending<CallDone>> pending(static_cast<Pending<CallDone>*>(data));
        BusCalls& calls = *pending->calls;
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_finish(reinterpret_cast<GDBusConnection*>(source),
                                                        result, &error);
        --calls.pending_;
        if (!calls.closing_) {
          pending->done(reply, error);
        }
        if (reply != nullptr) {
          g_variant_unref(reply);
        }
        if (error != nullptr) {
          g_error_free(error);
        }
      },
      new Pending<CallDone>{this, std::move(done)});
}

void BusCalls::close() {
  closing_ = true;
  g_cancellable_cancel(cancellable_);
}

}  // namespace orvanta::linux_platform
