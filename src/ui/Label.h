#pragma once

#include <pango/pango-layout.h>

#include <memory>
#include <optional>
#include <string>

#include "ui/Font.h"
#include "ui/View.h"

namespace zivora::ui {

// Text in a box: one font and colour, optionally outlined, aligned and
// centred vertically in the bounds like the platform's labels.
class Label : public View {
 public:
  enum class Alignment { Left, Center, Right };

  struct Attributes {
    Font font = Font::systemFont(17);
    Color foreground = Color::black();
    std::optional<Color> stroke;
    // A percentage of the font's size; negative fills and outlines, positive
    // outlines only.
    double strokeWidth = 0;
  };

  explicit Label(Rect frame = {});

  const std::string& text() const { return text_; }
  void setText(std::string text);
  // Text and attributes in one assignment.
  void setText(std::string text, Attributes attributes);
  const Attributes& attributes() const { return attributes_; }
  void setFont(Font font);
  void setTextColor(Color color);
  void setAlignment(Alignment alignment);
  // 0 for any number of lines; more than one wraps at words.
  void setNumberOfLines(int lines);
  // Below 1, a single line too wide for the bounds shrinks down to this
  // share of the font size.
  void setMinimumScaleFactor(double factor);

  // The height the text needs at `width`, within the line limit.
  double fittingHeight(double width) const;

  // Counts the text assignments, so that callers can prove they rebuild
  // the text only when it changes.
  int textRevision() const { return textRevision_; }

 protected:
  void draw(cairo_t* cr) override;
  bool drawsContent() const override { return !text_.empty(); }
  // Where the text's ink, outline included, goes past the bounds; measured
  // once per text, attributes and size.
  double overflow() const override;
  bool cachesOwnPainting() const override { return true; }

 private:
  struct GObjectDeleter {
    void operator()(void* object) const;
  };
  using LayoutPtr = std::unique_ptr<PangoLayout, GObjectDeleter>;
  // The laid-out text for `width` in context `cr`, and the font it ended in.
  LayoutPtr makeLayout(cairo_t* cr, double width, Font& font) const;
  // A setter changed what the text looks like.
  void textChanged();

  struct Overflow {
    Size size;
    double reach;
  };

  std::string text_;
  Attributes attributes_;
  Alignment alignment_ = Alignment::Left;
  int numberOfLines_ = 1;
  double minimumScaleFactor_ = 1;
  int textRevision_ = 0;
  mutable std::optional<Overflow> overflow_;
};

}  // namespace zivora::ui
