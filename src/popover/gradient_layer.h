#pragma once
// The hover highlight's layer and the view-backing layer it is attached to.
// A GradientLayer is owned by the popover controller and only ever attached
// to (never owned by) a BackingLayer; whichever is destroyed first unlinks
// the two without reporting a change.
//
// Runs on the main run loop.
#include <string>
#include <vector>

#include "popover/widgets.h"

namespace wren {

// A layer colour: opaque or translucent RGB in fractions, or the system
// highlight colour, which follows the system and is resolved by the drawer.
struct LayerColor {
  enum class Kind { Rgb, HighlightColor };
  Kind kind = Kind::Rgb;
  double red = 0, green = 0, blue = 0, alpha = 1;

  static LayerColor rgb(double r, double g, double b, double a = 1.0) { return {Kind::Rgb, r, g, b, a}; }
  static LayerColor highlightColor() { return {Kind::HighlightColor, 0, 0, 0, 0}; }
  friend bool operator==(const LayerColor&, const LayerColor&) = default;
};

class BackingLayer;

class GradientLayer {
 public:
  explicit GradientLayer(ChangeSignal* signal = nullptr) : signal_(signal) {}
  ~GradientLayer();
  GradientLayer(const GradientLayer&) = delete;
  GradientLayer& operator=(const GradientLayer&) = delete;

  // The stops, first to second across the row.
  std::vector<LayerColor> colors;
  Rect bounds;
  Point position;
  LayerColor borderColor;
  double borderWidth = 0;
  double cornerRadius = 0;

  BackingLayer* superlayer() const { return superlayer_; }
  // Detaches the layer; nothing happens when it is not attached.
  void removeFromSuperlayer();

 private:
  friend class BackingLayer;
  ChangeSignal* signal_;
  BackingLayer* superlayer_ = nullptr;
};

// A view's own layer. Sublayers are kept in drawing order, last on top.
class BackingLayer {
 public:
  BackingLayer(std::string ownerName, ChangeSignal* signal) : ownerName_(std::move(ownerName)), signal_(signal) {}
  ~BackingLayer();
  BackingLayer(const BackingLayer&) = delete;
  BackingLayer& operator=(const BackingLayer&) = delete;

  // The name of the view whose layer this is.
  const std::string& ownerName() const { return ownerName_; }
  const std::vector<GradientLayer*>& sublayers() const { return sublayers_; }
  // Attaches `layer` on top, taking it from any other superlayer first; a
  // layer that is already here only moves to the top, so it is never held twice.
  void addSublayer(GradientLayer* layer);

 private:
  friend class GradientLayer;
  void detach(GradientLayer* layer);
  std::string ownerName_;
  ChangeSignal* signal_;
  std::vector<GradientLayer*> sublayers_;
};

}  // namespace wren
