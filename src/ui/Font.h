#pragma once

#include <pango/pango-font.h>

#include <memory>
#include <string>

namespace zivora::ui {

// A font by family, weight and size in points. The families the screens
// name are resolved here, in one place, against what fontconfig has: a face
// the machine lacks becomes the system font at the same size, as the
// screens' texts ask.
class Font {
 public:
  // The system font (DejaVu Sans, installed by the set-up script).
  static Font systemFont(double size);
  static Font boldSystemFont(double size);
  // "Helvetica-Bold" and the like: family, a dash, a style. Null when the
  // machine has no such family.
  static std::unique_ptr<Font> named(const std::string& postScriptName, double size);

  const std::string& family() const { return family_; }
  bool isBold() const { return bold_; }
  double size() const { return size_; }
  Font withSize(double size) const { return Font(family_, bold_, size); }

  // Pango's description, the size absolute so that one point is one unit of
  // the drawing context.
  PangoFontDescription* description() const;

 private:
  Font(std::string family, bool bold, double size)
      : family_(std::move(family)), bold_(bold), size_(size) {}
  static bool familyInstalled(const std::string& family);

  std::string family_;
  bool bold_;
  double size_;
};

}  // namespace zivora::ui
