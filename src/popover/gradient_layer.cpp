#include "popover/gradient_layer.h"

#include <algorithm>

namespace wren {

GradientLayer::~GradientLayer() {
  if (superlayer_) superlayer_->detach(this);
}

void GradientLayer::removeFromSuperlayer() {
  if (!superlayer_) return;
  superlayer_->detach(this);
  if (signal_) signal_->notify();
}

BackingLayer::~BackingLayer() {
  for (GradientLayer* layer : sublayers_) layer->superlayer_ = nullptr;
}

void BackingLayer::addSublayer(GradientLayer* layer) {
  if (!layer) return;
  if (layer->superlayer_ == this && !sublayers_.empty() && sublayers_.back() == layer) return;
  if (layer->superlayer_) layer->superlayer_->detach(layer);
  sublayers_.push_back(layer);
  layer->superlayer_ = this;
  if (signal_) signal_->notify();
}

void BackingLayer::detach(GradientLayer* layer) {
  sublayers_.erase(std::remove(sublayers_.begin(), sublayers_.end(), layer), sublayers_.end());
  layer->superlayer_ = nullptr;
}

}  // namespace wren
