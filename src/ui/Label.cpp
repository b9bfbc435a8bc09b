#include "ui/Label.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace zivora::ui {
namespace {

struct FontDescriptionDeleter {
  void operator()(PangoFontDescription* d) const { pango_font_description_free(d); }
};

void applyFont(PangoLayout* layout, const Font& font) {
  std::unique_ptr<PangoFontDescription, FontDescriptionDeleter> description(font.description());
  pango_layout_set_font_description(layout, description.get());
}

PangoAlignment pangoAlignment(Label::Alignment alignment) {
  switch (alignment) {
    case Label::Alignment::Center:
      return PANGO_ALIGN_CENTER;
    case Label::Alignment::Right:
      return PANGO_ALIGN_RIGHT;
    default:
      return PANGO_ALIGN_LEFT;
  }
}

void setSourceColor(cairo_t* cr, const Color& c) {
  cairo_set_source_rgba(cr, c.red, c.green, c.blue, c.alpha);
}

}  // namespace

Label::Label(Rect frame) : View(frame) {}

void Label::textChanged() {
  overflow_.reset();
  setNeedsDisplay();
}

void Label::setText(std::string text) {
  text_ = std::move(text);
  ++textRevision_;
  textChanged();
}

void Label::setText(std::string text, Attributes attributes) {
  attributes_ = std::move(attributes);
  setText(std::move(text));
}

void Label::setFont(Font font) {
  attributes_.font = std::move(font);
  textChanged();
}

void Label::setTextColor(Color color) {
  attributes_.foreground = color;
  textChanged();
}

void Label::setAlignment(Alignment alignment) {
  alignment_ = alignment;
  textChanged();
}

void Label::setNumberOfLines(int lines) {
  numberOfLines_ = std::max(0, lines);
  textChanged();
}

void Label::setMinimumScaleFactor(double factor) {
  minimumScaleFactor_ = std::clamp(factor, 0.0, 1.0);
  textChanged();
}

void Label::GObjectDeleter::operator()(void* object) const { g_object_unref(object); }

Label::LayoutPtr Label::makeLayout(cairo_t* cr, double width, Font& font) const {
  LayoutPtr layout(pango_cairo_create_layout(cr));
  pango_layout_set_text(layout.get(), text_.c_str(), static_cast<int>(text_.size()));
  pango_layout_set_alignment(layout.get(), pangoAlignment(alignment_));
  pango_layout_set_width(layout.get(), static_cast<int>(width * PANGO_SCALE));
  font = attributes_.font;
  if (numberOfLines_ == 1) {
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    if (minimumScaleFactor_ < 1) {
      // Measure unconstrained, then shrink to the width within the limit.
      pango_layout_set_width(layout.get(), -1);
      applyFont(layout.get(), font);
      int natural = 0;
      pango_layout_get_pixel_size(layout.get(), &natural, nullptr);
      if (natural > width && natural > 0) {
        font = font.withSize(font.size() * std::max(minimumScaleFactor_, width / natural));
      }
      pango_layout_set_width(layout.get(), static_cast<int>(width * PANGO_SCALE));
    }
  } else {
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD);
    if (numberOfLines_ > 1) {
      pango_layout_set_height(layout.get(), -numberOfLines_);
      pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    }
  }
  applyFont(layout.get(), font);
  return layout;
}

double Label::fittingHeight(double width) const {
  cairo_surface_t* scratch = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
  cairo_t* cr = cairo_create(scratch);
  Font font = attributes_.font;
  LayoutPtr layout = makeLayout(cr, width, font);
  PangoRectangle logical;
  pango_layout_get_extents(layout.get(), nullptr, &logical);
  cairo_destroy(cr);
  cairo_surface_destroy(scratch);
  return std::ceil(static_cast<double>(logical.height) / PANGO_SCALE);
}

double Label::overflow() const {
  const Size size = bounds().size;
  if (text_.empty()) return 0;
  if (overflow_ && overflow_->size == size) return overflow_->reach;
  cairo_surface_t* scratch = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
  cairo_t* cr = cairo_create(scratch);
  Font font = attributes_.font;
  LayoutPtr layout = makeLayout(cr, size.width, font);
  PangoRectangle ink, logical;
  pango_layout_get_extents(layout.get(), &ink, &logical);
  cairo_destroy(cr);
  cairo_surface_destroy(scratch);
  // Placed as draw() places it; the outline is centred on the glyphs' edges,
  // and a point more absorbs antialiasing and hinting at other scales.
  const double top = (size.height - static_cast<double>(logical.height) / PANGO_SCALE) / 2;
  const double outline = attributes_.stroke && attributes_.strokeWidth != 0
                             ? std::abs(attributes_.strokeWidth) / 100 * font.size() / 2
                             : 0;
  const double pad = outline + 1;
  const double minX = static_cast<double>(ink.x) / PANGO_SCALE - pad;
  const double minY = top + static_cast<double>(ink.y) / PANGO_SCALE - pad;
  const double maxX = static_cast<double>(ink.x + ink.width) / PANGO_SCALE + pad;
  const double maxY = top + static_cast<double>(ink.y + ink.height) / PANGO_SCALE + pad;
  const double reach = std::max({0.0, -minX, -minY, maxX - size.width, maxY - size.height});
  overflow_ = Overflow{size, reach};
  return reach;
}

void Label::draw(cairo_t* cr) {
  if (text_.empty()) return;
  const Size size = bounds().size;
  Font font = attributes_.font;
  LayoutPtr layout = makeLayout(cr, size.width, font);

  PangoRectangle logical;
  pango_layout_get_extents(layout.get(), nullptr, &logical);
  const double textHeight = static_cast<double>(logical.height) / PANGO_SCALE;
  cairo_move_to(cr, 0, (size.height - textHeight) / 2);
  pango_cairo_layout_path(cr, layout.get());

  const bool fill = attributes_.strokeWidth <= 0;
  const bool outline = attributes_.stroke && attributes_.strokeWidth != 0;
  if (fill) {
    setSourceColor(cr, attributes_.foreground);
    if (outline) {
      cairo_fill_preserve(cr);
    } else {
      cairo_fill(cr);
    }
  }
  if (outline) {
    setSourceColor(cr, *attributes_.stroke);
    cairo_set_line_width(cr, std::abs(attributes_.strokeWidth) / 100 * font.size());
    cairo_stroke(cr);
  }
  cairo_new_path(cr);
}

}  // namespace zivora::ui
