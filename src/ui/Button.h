#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "ui/ImageView.h"
#include "ui/Label.h"
#include "ui/View.h"

namespace zivora::ui {

// A view that runs an action when tapped (touch up inside).
class Button : public View {
 public:
  explicit Button(Rect frame = {});

  void setAction(std::function<void()> action) { action_ = std::move(action); }
  // A centred title; white unless a colour is given.
  void setTitle(const std::string& title, Font font);
  void setTitleColor(Color color);
  std::shared_ptr<Label> titleLabel() const { return titleLabel_; }
  // An image inside the bounds inset by `inset` on every side, aspect-fit.
  // A file that does not load leaves the button empty but working.
  void setImageFile(const std::filesystem::path& path, double inset = 0);
  std::shared_ptr<ImageView> imageView() const { return imageView_; }

  void layoutSubviews() override;
  // What a tap does; the key and controller bindings call it as well.
  void sendAction();

 protected:
  void handleTap() override { sendAction(); }

 private:
  std::function<void()> action_;
  std::shared_ptr<Label> titleLabel_;
  std::shared_ptr<ImageView> imageView_;
  double imageInset_ = 0;
};

}  // namespace zivora::ui
