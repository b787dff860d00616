#include "popover/popover_state.h"

#include "popover/popover_rows.h"
#include "popover/safari_extension_view_controller.h"

namespace wren {
namespace {

const char* colorName(TextColor color) {
  switch (color) {
    case TextColor::Label:
      return "label";
    case TextColor::Grey:
      return "grey";
    case TextColor::Color:
      return "Color";
  }
  return "label";
}

Json colorJson(const LayerColor& color) {
  if (color.kind == LayerColor::Kind::HighlightColor) return "highlightColor";
  return Json::array({color.red, color.green, color.blue, color.alpha});
}

Json widgetJson(const Widget* widget) {
  if (!widget) return nullptr;
  Json out = Json::object();
  switch (widget->kind()) {
    case WidgetKind::View:
      out["kind"] = "view";
      break;
    case WidgetKind::Label:
      out["kind"] = "label";
      break;
    case WidgetKind::Image:
      out["kind"] = "check";
      break;
    case WidgetKind::Button:
      out["kind"] = "button";
      break;
  }
  out["hidden"] = widget->isHidden();
  if (widget->kind() == WidgetKind::Label) {
    out["text"] = widget->text();
    out["textColor"] = colorName(widget->textColor());
    out["toolTip"] = widget->toolTip() ? Json(*widget->toolTip()) : Json(nullptr);
  }
  if (widget->kind() == WidgetKind::Button) {
    const auto* button = static_cast<const HoverButton*>(widget);
    out["enabled"] = button->isEnabled();
    out["hover"] = button->hasMouseEnterHandler() || button->hasMouseExitHandler();
  }
  return out;
}

Json layerJson(const GradientLayer* layer) {
  if (!layer) return Json{{"built", false}};
  Json colors = Json::array();
  for (const LayerColor& color : layer->colors) colors.push_back(colorJson(color));
  return Json{{"built", true},
              {"attachedTo", layer->superlayer() ? Json(layer->superlayer()->ownerName()) : Json(nullptr)},
              {"colors", std::move(colors)},
              {"borderColor", colorJson(layer->borderColor)},
              {"borderWidth", layer->borderWidth},
              {"cornerRadius", layer->cornerRadius},
              {"bounds", Json::array({layer->bounds.x, layer->bounds.y, layer->bounds.width, layer->bounds.height})},
              {"position", Json::array({layer->position.x, layer->position.y})}};
}

Json priorityJson(const LayoutConstraint* constraint) {
  return constraint ? Json(constraint->priority) : Json(nullptr);
}

// A field of a JSON object if it has the wanted type.
bool flag(const Json& object, const char* key) {
  if (!object.is_object()) return false;
  auto it = object.find(key);
  return it != object.end() && it->is_boolean() && it->get<bool>();
}

std::string text(const Json& object, const char* key) {
  if (!object.is_object()) return {};
  auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

const Json& member(const Json& object, const std::string& key) {
  static const Json none;
  if (!object.is_object()) return none;
  auto it = object.find(key);
  return it == object.end() ? none : *it;
}

}  // namespace

Json popoverState(const SafariExtensionViewController& controller) {
  const PopoverView& view = controller.view();
  Json outlets = Json::object();
  Json layers = Json::object();
  Json rows = Json::array();
  const auto table = popoverRows();
  for (size_t i = 0; i < table.size(); ++i) {
    const PopoverRow& row = table[i];
    outlets[std::string(row.container)] = widgetJson(view.*row.containerOutlet);
    outlets[std::string(row.label)] = widgetJson(view.*row.labelOutlet);
    if (row.checkOutlet) outlets[std::string(row.check)] = widgetJson(view.*row.checkOutlet);
    outlets[std::string(row.button)] = widgetJson(view.*row.buttonOutlet);
    outlets[std::string(row.hoverTarget)] = widgetJson(view.*row.hoverTargetOutlet);
    layers[std::string(row.layer)] = layerJson(controller.layerOfRow(i));
    rows.push_back(Json{{"container", row.container},
                        {"label", row.label},
                        {"check", row.checkOutlet ? Json(row.check) : Json(nullptr)},
                        {"button", row.button},
                        {"hoverTarget", row.hoverTarget},
                        {"layer", row.layer}});
  }
  return Json{{"appearance", controller.isDarkMode() ? "dark" : "light"},
              {"outlets", std::move(outlets)},
              {"constraints",
               {{"topToVeldrin", priorityJson(view.topToVeldrin)},
                {"topToManualRating", priorityJson(view.topToManualRating)}}},
              {"layers", std::move(layers)},
              {"rows", std::move(rows)}};
}

std::string describePopover(const Json& state) {
  const Json& outlets = member(state, "outlets");
  const Json& layers = member(state, "layers");
  const Json& rows = member(state, "rows");
  if (!rows.is_array()) return "(no popover state)\n";
  std::string out;
  for (const Json& row : rows) {
    const Json& container = member(outlets, text(row, "container"));
    const Json& label = member(outlets, text(row, "label"));
    const Json& button = member(outlets, text(row, "button"));
    const std::string checkName = text(row, "check");
    const Json& layer = member(layers, text(row, "layer"));

    std::string line = "    ";
    if (!checkName.empty()) {
      const Json& check = member(outlets, checkName);
      line = check.is_object() && !flag(check, "hidden") ? "[x] " : "[ ] ";
    }
    const std::string title = text(label, "text");
    line += title.empty() ? text(row, "label") : title;
    if (flag(container, "hidden")) line += " (hidden)";
    const bool greyed = text(label, "textColor") == "grey";
    if (greyed) line += " (greyed)";
    if (button.is_object() && !flag(button, "enabled") && !greyed) line += " (disabled)";
    if (layer.is_object() && member(layer, "attachedTo").is_string()) line += " (highlighted)";
    if (const std::string tip = text(label, "toolTip"); !tip.empty()) line += " - \"" + tip + "\"";
    out += line + "\n";
  }
  return out;
}

}  // namespace wren
