#include "gtk_test_support.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <webkit/webkit.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "testing/child_process.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta::gtk_testing {

bool iterateUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit,
                  GMainContext* context) {
  if (!context) {
    context = g_main_context_default();
  }
  bool expired = false;
  GSource* timer = g_timeout_source_new(static_cast<guint>(limit.count()));
  g_source_set_callback(
      timer,
      [](gpointer data) -> gboolean {
        *static_cast<bool*>(data) = true;
        return G_SOURCE_REMOVE;
      },
      &expired, nullptr);
  g_source_attach(timer, context);
  while (!condition() && !expired) {
    g_main_context_iteration(context, TRUE);
  }
  g_source_destroy(timer);
  g_source_unref(timer);
  return condition();
}

namespace {

void collect(GtkWidget* widget, const std::function<bool(GtkWidget*)>& match,
             std::vector<GtkWidget*>& found) {
  if (match(widget)) {
    found.push_back(widget);
  }
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child;
       child = gtk_widget_get_next_sibling(child)) {
    collect(child, match, found);
  }
}

}  // namespace

std::vector<GtkWidget*> findAllByName(GtkWidget* root, const char* name) {
  std::vector<GtkWidget*> found;
  if (root) {
    collect(
        root, [&](GtkWidget* widget) { return g_strcmp0(gtk_widget_get_name(widget), name) == 0; },
        found);
  }
  return found;
}

GtkWidget* findByName(GtkWidget* root, const char* name) {
  auto found = findAllByName(root, name);
  return found.empty() ? nullptr : found.front();
}

GtkWidget* findByType(GtkWidget* root, GType type) {
  std::vector<GtkWidget*> found;
  if (root) {
    collect(
        root, [&](GtkWidget* widget) { return G_TYPE_CHECK_INSTANCE_TYPE(widget, type) != FALSE; },
        found);
  }
  return found.empty() ? nullptr : found.front();
}

std::vector<GtkWindow*> visibleToplevels() {
  std::vector<GtkWindow*> windows;
  GListModel* toplevels = gtk_window_get_toplevels();
  for (guint i = 0, count = g_list_model_get_n_items(toplevels); i < count; ++i) {
    auto* window = static_cast<GtkWindow*>(g_list_model_get_item(toplevels, i));
    if (gtk_widget_get_visible(GTK_WIDGET(window))) {
      windows.push_back(window);
    }
    g_object_unref(window);
  }
  return windows;
}

GtkWindow* visibleToplevelNamed(const char* name) {
  GtkWindow* found = nullptr;
  for (auto* window : visibleToplevels()) {
    if (g_strcmp0(gtk_widget_get_name(GTK_WIDGET(window)), name) == 0) {
      found = window;
    }
  }
  return found;
}

void destroyAllWindows() {
  std::vector<GtkWindow*> windows;
  GListModel* toplevels = gtk_window_get_toplevels();
  for (guint i = 0, count = g_list_model_get_n_items(toplevels); i < count; ++i) {
    windows.push_back(static_cast<GtkWindow*>(g_list_model_get_item(toplevels, i)));
  }
  // Held while destroying: a window may take its transient children down with it.
  for (auto* window : windows) {
    gtk_window_destroy(window);
  }
  // Released newest first: a transient window lets go of its parent before the parent goes.
  for (auto window = windows.rbegin(); window != windows.rend(); ++window) {
    g_object_unref(*window);
  }
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

bool press(GtkWidget* button) {
  if (!button) {
    return false;
  }
  bool clicked = false;
  const gulong handler = g_signal_connect_swapped(
      button, "clicked", G_CALLBACK(+[](bool* done) { *done = true; }), &clicked);
  // Held: the click may destroy the window around the button.
  g_object_ref(button);
  const bool activated = gtk_widget_activate(button) != FALSE;
  const bool done = activated && iterateUntil([&] { return clicked; });
  if (g_signal_handler_is_connected(button, handler)) {
    g_signal_handler_disconnect(button, handler);
  }
  g_object_unref(button);
  return done;
}

std::uint32_t Picture::rgb(int x, int y) const {
  const auto* p = &pixels_[(static_cast<std::size_t>(y) * width_ + x) * 4];
  return (std::uint32_t{p[0]} << 16) | (std::uint32_t{p[1]} << 8) | std::uint32_t{p[2]};
}

int Picture::countNear(std::uint32_t want, int x0, int y0, int width, int height,
                       int tolerance) const {
  int count = 0;
  for (int y = std::max(0, y0); y < std::min(height_, y0 + height); ++y) {
    for (int x = std::max(0, x0); x < std::min(width_, x0 + width); ++x) {
      const auto have = rgb(x, y);
      bool near = true;
      for (int shift : {16, 8, 0}) {
        const int a = static_cast<int>((have >> shift) & 0xff);
        const int b = static_cast<int>((want >> shift) & 0xff);
        near = near && std::abs(a - b) <= tolerance;
      }
      count += near ? 1 : 0;
    }
  }
  return count;
}

bool Picture::savePng(const std::string& path) const {
  if (empty()) {
    return false;
  }
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  GBytes* bytes = g_bytes_new(pixels_.data(), pixels_.size());
  GdkTexture* texture = gdk_memory_texture_new(width_, height_, GDK_MEMORY_R8G8B8A8, bytes,
                                               static_cast<gsize>(width_) * 4);
  const bool saved = gdk_texture_save_to_png(texture, path.c_str()) != FALSE;
  g_object_unref(texture);
  g_bytes_unref(bytes);
  return saved;
}

Picture takePicture(GtkWindow* window) {
  auto* widget = GTK_WIDGET(window);
  GskRenderer* renderer = gtk_native_get_renderer(GTK_NATIVE(window));
  if (!gtk_widget_get_mapped(widget) || !renderer) {
    return {};
  }
  // Drawn at its own size (the window's surface, decorations included), so nothing is scaled.
  GdkPaintable* paintable = gtk_widget_paintable_new(widget);
  const int width = gdk_paintable_get_intrinsic_width(paintable);
  const int height = gdk_paintable_get_intrinsic_height(paintable);
  if (gtk_widget_get_width(widget) <= 0 || gtk_widget_get_height(widget) <= 0 ||
      width < gtk_widget_get_width(widget) || height < gtk_widget_get_height(widget)) {
    g_object_unref(paintable);  // not laid out at its size yet
    return {};
  }
  GtkSnapshot* snapshot = gtk_snapshot_new();
  // An opaque backdrop, so that the picture looks as on screen.
  graphene_rect_t bounds =
      GRAPHENE_RECT_INIT(0, 0, static_cast<float>(width), static_cast<float>(height));
  GdkRGBA white = {1, 1, 1, 1};
  gtk_snapshot_append_color(snapshot, &white, &bounds);
  gdk_paintable_snapshot(paintable, snapshot, width, height);
  GskRenderNode* node = gtk_snapshot_free_to_node(snapshot);
  Picture picture;
  if (node) {
    GdkTexture* texture = gsk_renderer_render_texture(renderer, node, &bounds);
    const int w = gdk_texture_get_width(texture);
    const int h = gdk_texture_get_height(texture);
    // Downloaded as premultiplied BGRA (cairo's layout); opaque here, so turned into RGBA as is.
    std::vector<std::uint8_t> bgra(static_cast<std::size_t>(w) * h * 4);
    gdk_texture_download(texture, bgra.data(), static_cast<gsize>(w) * 4);
    std::vector<std::uint8_t> rgba(bgra.size());
    for (std::size_t i = 0; i < bgra.size(); i += 4) {
      rgba[i] = bgra[i + 2];
      rgba[i + 1] = bgra[i + 1];
      rgba[i + 2] = bgra[i];
      rgba[i + 3] = 255;
    }
    picture = Picture(w, h, std::move(rgba));
    g_object_unref(texture);
    gsk_render_node_unref(node);
  }
  g_object_unref(paintable);
  return picture;
}

std::string artifactPath(const std::string& fileName) {
  return std::string(ORVANTA_GTK_ARTIFACTS_DIR) + "/" + fileName;
}

void runJavaScript(GtkWidget* webView, const std::string& script) {
  webkit_web_view_evaluate_javascript(WEBKIT_WEB_VIEW(webView), script.c_str(), -1, nullptr,
                                      nullptr, nullptr, nullptr, nullptr);
}

namespace {

/// One X server per test program, with GTK on it. The environment is set for this process only;
/// the WebKit switches are the documented ones for running without a sandbox or a GPU, which a
/// container does not offer.
class GtkEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    home_ = std::make_unique<orvanta::testing::TemporaryDirectory>();
    const std::filesystem::path base = home_->path();
    for (const char* folder : {"cache", "config", "data", "runtime"}) {
      std::filesystem::create_directories(base / folder);
    }
    std::filesystem::permissions(base / "runtime", std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::replace);
    // Xvfb picks a free display number and writes it on descriptor 3 once it accepts clients.
    display_ = std::make_unique<orvanta::testing::ChildServer>(
        std::vector<std::string>{ORVANTA_XVFB, "-displayfd", "3", "-screen", "0", "1280x800x24",
                                 "-nolisten", "tcp", "-noreset", "-nocursor"},
        "", std::chrono::seconds(30));
    ASSERT_TRUE(display_->readyLine()) << display_->failure();
    setenv("DISPLAY", (":" + *display_->readyLine()).c_str(), 1);
    setenv("GDK_BACKEND", "x11", 1);
    setenv("GSK_RENDERER", "cairo", 1);
    setenv("GTK_A11Y", "none", 1);
    setenv("NO_AT_BRIDGE", "1", 1);
    setenv("GSETTINGS_BACKEND", "memory", 1);
    setenv("WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS", "1", 1);
    setenv("WEBKIT_DISABLE_COMPOSITING_MODE", "1", 1);
    setenv("XDG_CACHE_HOME", (base / "cache").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (base / "config").c_str(), 1);
    setenv("XDG_DATA_HOME", (base / "data").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", (base / "runtime").c_str(), 1);
    gtk_init();
  }

  void TearDown() override {
    destroyAllWindows();
    if (GdkDisplay* display = gdk_display_get_default()) {
      gdk_display_close(display);
    }
    display_.reset();
    home_.reset();
  }

 private:
  std::unique_ptr<orvanta::testing::TemporaryDirectory> home_;
  std::unique_ptr<orvanta::testing::ChildServer> display_;
};

[[maybe_unused]] auto* const environment =
    ::testing::AddGlobalTestEnvironment(new GtkEnvironment());

}  // namespace

}  // namespace orvanta::gtk_testing
