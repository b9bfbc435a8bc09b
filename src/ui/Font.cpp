#include "ui/Font.h"

#include <pango/pangocairo.h>

namespace zivora::ui {
namespace {
constexpr const char* kSystemFamily = "DejaVu Sans";
}

Font Font::systemFont(double size) { return Font(kSystemFamily, false, size); }

Font Font::boldSystemFont(double size) { return Font(kSystemFamily, true, size); }

std::unique_ptr<Font> Font::named(const std::string& postScriptName, double size) {
  const auto dash = postScriptName.find('-');
  std::string family = postScriptName.substr(0, dash);
  std::string style = dash == std::string::npos ? "" : postScriptName.substr(dash + 1);
  if (!familyInstalled(family)) return nullptr;
  return std::unique_ptr<Font>(new Font(family, style == "Bold", size));
}

bool Font::familyInstalled(const std::string& family) {
  PangoFontMap* map = pango_cairo_font_map_get_default();
  PangoFontFamily** families = nullptr;
  int count = 0;
  pango_font_map_list_families(map, &families, &count);
  bool found = false;
  for (int i = 0; i < count && !found; ++i) {
    found = g_ascii_strcasecmp(pango_font_family_get_name(families[i]), family.c_str()) == 0;
  }
  g_free(families);
  return found;
}

PangoFontDescription* Font::description() const {
  PangoFontDescription* description = pango_font_description_new();
  pango_font_description_set_family(description, family_.c_str());
  pango_font_description_set_weight(description, bold_ ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_absolute_size(description, size_ * PANGO_SCALE);
  return description;
}

}  // namespace zivora::ui
