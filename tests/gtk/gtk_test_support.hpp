#pragma once

#include <gtk/gtk.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvanta::gtk_testing {

using namespace std::chrono_literals;

/// How long any wait for GTK or WebKit may take before the test fails instead of hanging.
inline constexpr std::chrono::milliseconds kDeadline = 60s;

/// Iterates `context` (null: the default context, GTK's) until `condition` holds or `limit`
/// passes; true when it holds. Blocks in the context between events, never sleeps.
bool iterateUntil(const std::function<bool()>& condition,
                  std::chrono::milliseconds limit = kDeadline, GMainContext* context = nullptr);

/// The first widget named `name` in the tree under `root` (depth first), or null.
GtkWidget* findByName(GtkWidget* root, const char* name);
/// Every widget named `name` under `root`, in tree order.
std::vector<GtkWidget*> findAllByName(GtkWidget* root, const char* name);
/// The first widget of `type` under `root`, or null.
GtkWidget* findByType(GtkWidget* root, GType type);

/// Visible toplevel windows, in creation order.
std::vector<GtkWindow*> visibleToplevels();
/// The visible toplevel named `name` (the last one created), or null.
GtkWindow* visibleToplevelNamed(const char* name);

/// Destroys every toplevel window and lets GTK finish with them.
void destroyAllWindows();

/// Presses `button` as the keyboard does (GTK shows it pressed for a moment, then emits
/// "clicked") and waits until the click has happened; false if it never did.
bool press(GtkWidget* button);

/// A picture of a window as GTK draws it.
class Picture {
 public:
  Picture() = default;
  Picture(int width, int height, std::vector<std::uint8_t> pixels)
      : width_(width), height_(height), pixels_(std::move(pixels)) {}
  int width() const { return width_; }
  int height() const { return height_; }
  bool empty() const { return pixels_.empty(); }
  /// 0xRRGGBB of the pixel at (x, y).
  std::uint32_t rgb(int x, int y) const;
  /// How many pixels in the rectangle are close to `rgb`.
  int countNear(std::uint32_t rgb, int x, int y, int width, int height, int tolerance = 24) const;
  /// Writes the picture as a PNG file, creating the folder; false on failure.
  bool savePng(const std::string& path) const;

 private:
  int width_ = 0;
  int height_ = 0;
  std::vector<std::uint8_t> pixels_;  // RGBA, 8 bits each
};

/// Draws `window` (mapped) with its own renderer, at the size of its surface (client-side
/// decorations included). Empty when it cannot be drawn yet.
Picture takePicture(GtkWindow* window);

/// Where the tests leave their screenshots.
std::string artifactPath(const std::string& fileName);

/// Runs JavaScript in the page, without waiting for its result.
void runJavaScript(GtkWidget* webView, const std::string& script);

}  // namespace orvanta::gtk_testing
