#pragma once
// A row button that reports the mouse entering and leaving it and carries its
// click action. The handlers and the action run only while the button is
// enabled: a disabled (greyed) row neither lights up nor acts, even when its
// handlers are still installed.
//
// Runs on the main run loop; the handlers may be swapped from any thread (a
// reader sees the old or the new handler, never a torn one). Owned by
// PopoverView; owns its tracking area records.
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "popover/widgets.h"

namespace wren {

struct TrackingArea {
  // mouse entered and exited (0x1) | active always (0x80) | in visible rect (0x200)
  static constexpr unsigned kHoverOptions = 0x281;
  Rect rect;
  unsigned options = 0;
};

class HoverButton : public Widget {
 public:
  using Handler = std::function<void()>;

  HoverButton(std::string name, ChangeSignal* signal) : Widget(WidgetKind::Button, std::move(name), signal) {}

  // An empty handler clears it.
  void setMouseEnterHandler(Handler handler);
  void setMouseExitHandler(Handler handler);
  bool hasMouseEnterHandler() const;
  bool hasMouseExitHandler() const;

  // The platform's tracking callbacks.
  void mouseEntered();
  void mouseExited();

  // The action a click runs (the interface description's target-action).
  void setAction(Handler action);
  // A click from the platform: runs the action when the button is enabled.
  // False when it is disabled, and then nothing runs.
  bool click();

  // Replaces the button's tracking area with one over its frame (the frame,
  // not the bounds: the in-visible-rect option makes the rectangle moot).
  void updateTrackingAreas();
  const std::vector<std::shared_ptr<TrackingArea>>& trackingAreas() const { return trackingAreas_; }
  std::shared_ptr<TrackingArea> trackArea() const;

  // Recolours the title only; its text stays.
  void setTextColor(TextColor color) override { Widget::setTextColor(color); }

 private:
  void addTrackingArea(std::shared_ptr<TrackingArea> area);
  void removeTrackingArea(const std::shared_ptr<TrackingArea>& area);

  mutable std::mutex mutex_;  // guards blockEnter_, blockExit_, action_ and trackArea_
  Handler blockEnter_;
  Handler blockExit_;
  Handler action_;
  std::shared_ptr<TrackingArea> trackArea_;
  std::vector<std::shared_ptr<TrackingArea>> trackingAreas_;
};

}  // namespace wren
