#include "ui/ZVPostVideoView.h"

#include "ui/UIColorUtilities.h"
#include "util/Guard.h"
#include "zivora/ZVConstants.h"

namespace zivora::ui {
namespace {

constexpr double kCloseButtonSide = 60;
constexpr double kCloseButtonInset = 10;
constexpr double kPanelHeight = 80;
constexpr double kMargin = 8;
constexpr Size kIconSize{50, 56};
constexpr Size kInstallSize{100, 50};
constexpr double kTitleFontSize = 18;
constexpr double kTitleMinimumScale = 0.62;
constexpr double kDescriptionFontSize = 13;
constexpr auto kHideDuration = std::chrono::milliseconds(200);

// A string value of the dictionary; a missing key, null or another type
// counts as absent.
std::optional<std::string> stringFor(const nlohmann::json& dictionary, const char* key) {
  auto found = dictionary.find(key);
  if (found == dictionary.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::string stringFor(const nlohmann::json& dictionary, const char* key, const char* fallback) {
  return stringFor(dictionary, key).value_or(fallback);
}

}  // namespace

ZVPostVideoView::ZVPostVideoView(nlohmann::json adConfiguration, std::weak_ptr<Presenter> presenter,
                                 PathForURL pathForURL, std::optional<std::string> closeButtonURL)
    : View(lockPresenter(presenter)->screen().bounds()),
      adConfiguration_(std::move(adConfiguration)),
      presenter_(std::move(presenter)),
      pathForURL_(std::move(pathForURL)),
      closeButtonURL_(std::move(closeButtonURL)) {
  guarded("ZVPostVideoView", "setup", [&] { setup(); });
}

void ZVPostVideoView::setup() {
  if (!adConfiguration_.is_object()) return;
  setBackgroundColor(Color::black());
  guarded("ZVPostVideoView", "addImage", [&] { addImage(); });
  guarded("ZVPostVideoView", "addCloseButton", [&] { addCloseButton(); });
  auto motivation = adConfiguration_.find(TS_API_MOTIVATION_INFO);
  if (motivation != adConfiguration_.end() && motivation->is_object()) {
    guarded("ZVPostVideoView", "setMotivatedView", [&] { setMotivatedView(*motivation); });
  }
}

void ZVPostVideoView::addImage() {
  auto image = std::make_shared<ImageView>(lockPresenter(presenter_)->screen().safeAreaRect());
  if (auto url = stringFor(adConfiguration_, TS_API_IMAGE_URL))
    image->setImageFile(pathForURL_(*url));
  image->setUserInteractionEnabled(true);
  image->setTapHandler([this] { handleTap(); });
  addSubview(image);
  imageView_ = image;
}

std::shared_ptr<View> ZVPostVideoView::callToAction() const {
  if (auto install = installButton_.lock()) return install;
  return imageView_.lock();
}

void ZVPostVideoView::handleTap() {
  // Taps arrive here only once they have ended; a cancelled gesture never does.
  guarded("ZVPostVideoView", "handleTap", [&] {
    if (auto d = delegate()) d->tapTargetView();
  });
}

void ZVPostVideoView::addCloseButton() {
  const Rect safe = lockPresenter(presenter_)->screen().safeAreaRect();
  auto close = std::make_shared<Button>(
      Rect{{safe.maxX() - kCloseButtonSide, safe.minY()}, {kCloseButtonSide, kCloseButtonSide}});
  if (closeButtonURL_) close->setImageFile(pathForURL_(*closeButtonURL_), kCloseButtonInset);
  close->setAction([this] { closeHandler(); });
  addSubview(close);
  closeButton_ = close;
}

void ZVPostVideoView::setMotivatedView(const nlohmann::json& motivation) {
  const Rect safe = lockPresenter(presenter_)->screen().safeAreaRect();
  const double width = safe.width();
  auto panel = std::make_shared<View>(
      Rect{{safe.minX(), safe.maxY() - kPanelHeight}, {width, kPanelHeight}});
  addSubview(panel);
  panel_ = panel;
  panel->setBackgroundColor(UIColorUtilities::colorWithHexString(
      stringFor(motivation, TS_API_BACKGROUND_COLOR, "#d0000000")));

  const Rect install{
      {width - kMargin - kInstallSize.width, (kPanelHeight - kInstallSize.height) / 2},
      kInstallSize};
  double titleLeft = kMargin;
  double areaLeft = 0;
  if (auto iconURL = stringFor(motivation, TS_API_CURRENCY_ICON_URL)) {
    const Rect iconFrame{{kMargin, (kPanelHeight - kIconSize.height) / 2}, kIconSize};
    auto icon = std::make_shared<ImageView>(iconFrame);
    icon->setImageFile(pathForURL_(*iconURL));
    panel->addSubview(icon);
    titleLeft = iconFrame.maxX() + 10;
    areaLeft = iconFrame.maxX() + 2;
  }

  auto title = std::make_shared<Label>();
  title->setFont(Font::boldSystemFont(kTitleFontSize));
  title->setMinimumScaleFactor(kTitleMinimumScale);
  title->setText(stringFor(motivation, TS_API_TITLE, "Earn for free"));
  const double titleWidth = install.minX() - 10 - titleLeft;
  const double titleTop = 12;
  const double titleHeight = title->fittingHeight(titleWidth);
  title->setFrame({{titleLeft, titleTop}, {titleWidth, titleHeight}});
  panel->addSubview(title);
  title->setTextColor(
      UIColorUtilities::colorWithHexString(stringFor(motivation, TS_API_TITLE_COLOR, "#ffffff")));

  const Rect areaFrame{{areaLeft, titleTop + titleHeight},
                       {install.minX() - 10 - areaLeft, kPanelHeight - titleTop - titleHeight}};
  auto area = std::make_shared<View>(areaFrame);
  panel->addSubview(area);
  auto description = std::make_shared<Label>();
  description->setFont(Font::systemFont(kDescriptionFontSize));
  description->setNumberOfLines(2);
  description->setText(stringFor(motivation, TS_API_DESCRIPTION, "Only install and launch game"));
  const double descriptionWidth = areaFrame.width() - 2 * kMargin;
  const double descriptionHeight = description->fittingHeight(descriptionWidth);
  description->setFrame({{kMargin, areaFrame.height() / 2 - 4 - descriptionHeight / 2},
                         {descriptionWidth, descriptionHeight}});
  area->addSubview(description);
  description->setTextColor(UIColorUtilities::colorWithHexString(
      stringFor(motivation, TS_API_DESCRIPTION_COLOR, "#828282")));

  auto button = std::make_shared<Button>(install);
  button->setTitle(stringFor(motivation, TS_API_BUTTON_TEXT, "Install"),
                   Font::systemFont(kTitleFontSize));
  button->setCornerRadius(8);
  button->setAction([this] { clickInstallHandler(); });
  panel->addSubview(button);
  installButton_ = button;
  button->setBackgroundColor(
      UIColorUtilities::colorWithHexString(stringFor(motivation, TS_API_BUTTON_COLOR, "#30B236")));
  if (auto textColor = stringFor(motivation, TS_API_BUTTON_TEXT_COLOR)) {
    button->setTitleColor(UIColorUtilities::colorWithHexString(*textColor));
  }
}

void ZVPostVideoView::closeHandler() {
  guarded("ZVPostVideoView", "closeHandler", [&] {
    if (auto d = delegate()) d->tapCloseView();
    animateHide();
  });
}

void ZVPostVideoView::clickInstallHandler() {
  guarded("ZVPostVideoView", "clickInstallHandler", [&] {
    if (auto d = delegate()) d->tapTargetView();
  });
}

void ZVPostVideoView::animateHide() {
  guarded("ZVPostVideoView", "animateHide", [&] {
    if (auto d = delegate()) d->videoWindowWillClose();
    auto presenter = lockPresenter(presenter_);
    const Screen screen = presenter->screen();
    setFrame(screen.bounds());
    // The view covers its window, so sliding it out slides the screen out.
    std::weak_ptr<View> self = weak_from_this();
    std::weak_ptr<ZVPostVideoViewDelegate> delegate = delegate_;
    presenter->animator().animate(
        shared_from_this(), std::chrono::duration_cast<dispatch::Duration>(kHideDuration),
        [self, height = screen.size.height](double progress) {
          if (auto view = self.lock()) view->setTranslation({0, height * progress});
        },
        [delegate](bool) {
          guarded("ZVPostVideoView", "animateHideCompletion", [&] {
            if (auto d = delegate.lock()) d->didHidePostView();
          });
        });
  });
}

}  // namespace zivora::ui
