#include "popover/hover_button.h"

#include <algorithm>

namespace wren {

void HoverButton::setMouseEnterHandler(Handler handler) {
  bool changed;
  {
    std::lock_guard lock(mutex_);
    changed = static_cast<bool>(blockEnter_) != static_cast<bool>(handler);
    blockEnter_ = std::move(handler);
  }
  if (changed) notify();
}

void HoverButton::setMouseExitHandler(Handler handler) {
  bool changed;
  {
    std::lock_guard lock(mutex_);
    changed = static_cast<bool>(blockExit_) != static_cast<bool>(handler);
    blockExit_ = std::move(handler);
  }
  if (changed) notify();
}

bool HoverButton::hasMouseEnterHandler() const {
  std::lock_guard lock(mutex_);
  return static_cast<bool>(blockEnter_);
}

bool HoverButton::hasMouseExitHandler() const {
  std::lock_guard lock(mutex_);
  return static_cast<bool>(blockExit_);
}

void HoverButton::mouseEntered() {
  Handler handler;
  {
    std::lock_guard lock(mutex_);
    handler = blockEnter_;
  }
  // Run outside the lock: the handler may well reinstall handlers.
  if (isEnabled() && handler) handler();
}

void HoverButton::mouseExited() {
  Handler handler;
  {
    std::lock_guard lock(mutex_);
    handler = blockExit_;
  }
  if (isEnabled() && handler) handler();
}

void HoverButton::setAction(Handler action) {
  std::lock_guard lock(mutex_);
  action_ = std::move(action);
}

bool HoverButton::click() {
  if (!isEnabled()) return false;
  Handler action;
  {
    std::lock_guard lock(mutex_);
    action = action_;
  }
  if (action) action();
  return true;
}

std::shared_ptr<TrackingArea> HoverButton::trackArea() const {
  std::lock_guard lock(mutex_);
  return trackArea_;
}

void HoverButton::updateTrackingAreas() {
  if (auto old = trackArea()) removeTrackingArea(old);
  auto area = std::make_shared<TrackingArea>(TrackingArea{frame(), TrackingArea::kHoverOptions});
  {
    std::lock_guard lock(mutex_);
    trackArea_ = area;
  }
  addTrackingArea(std::move(area));
}

void HoverButton::addTrackingArea(std::shared_ptr<TrackingArea> area) { trackingAreas_.push_back(std::move(area)); }

void HoverButton::removeTrackingArea(const std::shared_ptr<TrackingArea>& area) {
  trackingAreas_.erase(std::remove(trackingAreas_.begin(), trackingAreas_.end(), area), trackingAreas_.end());
}

}  // namespace wren
