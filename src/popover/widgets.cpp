#include "popover/widgets.h"

namespace wren {

std::optional<TextColor> colorNamed(std::string_view name) {
  if (name == "Color") return TextColor::Color;
  return std::nullopt;
}

}  // namespace wren
