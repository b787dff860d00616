#include "popover/popover_rows.h"

#include <array>

#include "popover/popover_view.h"
#include "popover/safari_extension_view_controller.h"
#include "server/setting.h"

namespace wren {
namespace {

using V = PopoverView;
using C = SafariExtensionViewController;

constexpr std::array kRows = {
    PopoverRow{"viewAutoRating", "lblAutoRating", "autoRatingCheck", "btnAutoRating", "autoRatingLayer",
               "layerAutoRating", "lblAutoRating.title", "Automatic scan", &V::viewAutoRating, &V::lblAutoRating,
               &V::autoRatingCheck, &V::btnAutoRating, &V::autoRatingLayer, &C::btnAutoRatingClicked,
               &Setting::bAutoScanEnabled, true},
    PopoverRow{"viewManualRating", "lblManualRating", "manualRatingCheck", "btnManualRating", "manualRatingLayer",
               "layerManualRating", "lblManualRating.title", "Manual rating", &V::viewManualRating,
               &V::lblManualRating, &V::manualRatingCheck, &V::btnManualRating, &V::manualRatingLayer,
               &C::btnManualRatingClicked, &Setting::bManualScanEnabled, true},
    PopoverRow{"viewVeldrin", "lblVeldrin", "veldrinCheck", "btnVeldrin", "veldrinLayer", "layerVeldrin",
               kVeldrinRowTitleKey, "Veldrin Scam Scanner", &V::viewVeldrin, &V::lblVeldrin, &V::veldrinCheck,
               &V::btnVeldrin, &V::veldrinLayer, &C::btnVeldrinClicked, nullptr, false},
    PopoverRow{"viewSettings", "lblSettings", "", "btnSettings", "settingLayer", "layerSettings",
               "lblSettings.title", "Settings", &V::viewSettings, &V::lblSettings, nullptr, &V::btnSettings,
               &V::settingLayer, &C::btnSettingsClicked, nullptr, true},
    PopoverRow{"viewHelp", "lblHelp", "", "btnHelp", "helpLayer", "layerHelp", "lblHelp.title", "Help",
               &V::viewHelp, &V::lblHelp, nullptr, &V::btnHelp, &V::helpLayer, &C::btnHelpClicked, nullptr,
               true},
};

}  // namespace

std::span<const PopoverRow> popoverRows() { return kRows; }

}  // namespace wren
