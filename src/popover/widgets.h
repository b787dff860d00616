#pragma once
// The in-memory widget model the popover's row logic runs against: the widget
// operations it needs (hidden, enabled, text colour, tooltip, constraint
// priority, backing layers) and nothing else. The native-messaging host
// serialises this model and the extension's popup draws it.
//
// Runs on the main run loop. A widget is owned by the view hierarchy
// (PopoverView); the controller only holds non-owning, nullable outlets.
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace wren {

struct Point {
  double x = 0, y = 0;
};
struct Rect {
  double x = 0, y = 0, width = 0, height = 0;
};

// The text colours the popover uses: the platform's label colour, the
// disabled grey and the asset-catalogue colour "Color".
enum class TextColor { Label, Grey, Color };

// The asset catalogue's named colours: only "Color" exists.
std::optional<TextColor> colorNamed(std::string_view name);

// One place every widget reports a change to, so the host can send one state
// frame per run-loop turn however many widgets changed.
class ChangeSignal {
 public:
  void setHandler(std::function<void()> handler) { handler_ = std::move(handler); }
  void notify() const {
    if (handler_) handler_();
  }

 private:
  std::function<void()> handler_;
};

enum class WidgetKind { View, Label, Image, Button };

class Widget {
 public:
  Widget(WidgetKind kind, std::string name, ChangeSignal* signal) : kind_(kind), name_(std::move(name)), signal_(signal) {}
  virtual ~Widget() = default;
  Widget(const Widget&) = delete;
  Widget& operator=(const Widget&) = delete;

  WidgetKind kind() const { return kind_; }
  const std::string& name() const { return name_; }

  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden) { change(hidden_, hidden); }
  bool isEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { change(enabled_, enabled); }
  TextColor textColor() const { return textColor_; }
  virtual void setTextColor(TextColor color) { change(textColor_, color); }
  const std::optional<std::string>& toolTip() const { return toolTip_; }
  void setToolTip(std::optional<std::string> tip) { change(toolTip_, std::move(tip)); }
  const std::string& text() const { return text_; }
  void setText(std::string text) { change(text_, std::move(text)); }
  // The rectangle in the superview's coordinates.
  const Rect& frame() const { return frame_; }
  void setFrame(Rect frame) { frame_ = frame; }

 protected:
  template <typename T>
  void change(T& field, T value) {
    if (field == value) return;
    field = std::move(value);
    notify();
  }
  void notify() const {
    if (signal_) signal_->notify();
  }

 private:
  WidgetKind kind_;
  std::string name_;
  ChangeSignal* signal_;
  bool hidden_ = false;
  bool enabled_ = true;
  TextColor textColor_ = TextColor::Label;
  std::optional<std::string> toolTip_;
  std::string text_;
  Rect frame_;
};

// A text field showing a row's title.
class Label : public Widget {
 public:
  Label(std::string name, ChangeSignal* signal) : Widget(WidgetKind::Label, std::move(name), signal) {}
};

// An image view: the rows' check marks.
class ImageView : public Widget {
 public:
  ImageView(std::string name, ChangeSignal* signal) : Widget(WidgetKind::Image, std::move(name), signal) {}
};

struct LayoutConstraint {
  float priority = 1000.0f;
};

}  // namespace wren
