#include "ui/Button.h"

namespace zivora::ui {

Button::Button(Rect frame) : View(frame) {}

void Button::setTitle(const std::string& title, Font font) {
  if (!titleLabel_) {
    titleLabel_ = std::make_shared<Label>(bounds());
    titleLabel_->setAlignment(Label::Alignment::Center);
    titleLabel_->setTextColor(Color::white());
    titleLabel_->setUserInteractionEnabled(false);
    addSubview(titleLabel_);
  }
  titleLabel_->setFont(std::move(font));
  titleLabel_->setText(title);
}

void Button::setTitleColor(Color color) {
  if (titleLabel_) titleLabel_->setTextColor(color);
}

void Button::setImageFile(const std::filesystem::path& path, double inset) {
  if (!imageView_) {
    imageView_ = std::make_shared<ImageView>();
    addSubview(imageView_);
  }
  imageInset_ = inset;
  imageView_->setImageFile(path);
  layoutSubviews();
}

void Button::layoutSubviews() {
  if (titleLabel_) titleLabel_->setFrame(bounds());
  if (imageView_) {
    const Rect b = bounds();
    imageView_->setFrame({{imageInset_, imageInset_},
                          {std::max(0.0, b.width() - 2 * imageInset_),
                           std::max(0.0, b.height() - 2 * imageInset_)}});
  }
}

void Button::sendAction() {
  if (action_) action_();
}

}  // namespace zivora::ui
