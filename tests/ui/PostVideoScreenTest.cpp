#include <cairo.h>
#include <gtest/gtest.h>

#include <vector>

#include "support/ReferenceImage.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "ui/ZVPostVideoController.h"

namespace zivora::ui {
namespace {

using namespace std::chrono_literals;

// Writes a PNG of a diagonal gradient in two colours, standing for the
// downloaded images of an ad.
void writeImage(const std::filesystem::path& path, int width, int height, Color from, Color to) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_pattern_t* gradient = cairo_pattern_create_linear(0, 0, width, height);
  cairo_pattern_add_color_stop_rgba(gradient, 0, from.red, from.green, from.blue, from.alpha);
  cairo_pattern_add_color_stop_rgba(gradient, 1, to.red, to.green, to.blue, to.alpha);
  cairo_set_source(cr, gradient);
  cairo_paint(cr);
  cairo_pattern_destroy(gradient);
  cairo_destroy(cr);
  cairo_surface_write_to_png(surface, path.c_str());
  cairo_surface_destroy(surface);
}

class RecordingDelegate : public ZVPostVideoControllerDelegate {
 public:
  void tapClosePostVideo() override { calls.push_back("tapClosePostVideo"); }
  void tapTarget() override { calls.push_back("tapTarget"); }
  void videoWindowWillClose() override { calls.push_back("videoWindowWillClose"); }
  void didHidePostVideo() override { calls.push_back("didHidePostVideo"); }
  std::vector<std::string> calls;
};

class PostVideoScreenTest : public ::testing::Test {
 protected:
  PostVideoScreenTest() {
    writeImage(files_.path() / "image.png", 320, 180, {0.9, 0.5, 0.1, 1}, {0.2, 0.1, 0.6, 1});
    writeImage(files_.path() / "icon.png", 50, 56, {1, 0.85, 0, 1}, {0.8, 0.5, 0, 1});
    writeImage(files_.path() / "close.png", 40, 40, {1, 1, 1, 1}, {0.6, 0.6, 0.6, 1});
    controller_ = makeController("close.png");
  }

  std::shared_ptr<ZVPostVideoController> makeController(const std::string& closeImage) {
    auto controller = std::make_shared<ZVPostVideoController>(
        presenter_, [this](const std::string& url) { return files_.path() / url; }, closeImage);
    controller->setDelegate(delegate_);
    return controller;
  }

  nlohmann::json ad(nlohmann::json motivation = nullptr) {
    nlohmann::json ad = {{"imageURL", "image.png"}};
    if (!motivation.is_null()) ad["motivationInfo"] = std::move(motivation);
    return ad;
  }

  void show(nlohmann::json configuration) {
    controller_->initWithConfiguration(std::move(configuration));
    runtime_.runOnMain([&] { controller_->show(); });
  }

  std::shared_ptr<View> panel() { return controller_->view()->motivatedPanel(); }
  // The panel's elements in the order they were built.
  const std::vector<std::shared_ptr<View>>& panelViews() { return panel()->subviews(); }

  test::VirtualRuntime runtime_;
  test::ScopedContext context_;
  test::TempDir files_;
  std::shared_ptr<Presenter> presenter_ = std::make_shared<Presenter>(
      Screen{{640, 360}, 1, {}}, runtime_.mainQueue(), runtime_.clock());
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  std::shared_ptr<ZVPostVideoController> controller_;
};

TEST_F(PostVideoScreenTest, WithoutMotivationOnlyTheImageAndCloseButtonShow) {
  show(ad());
  EXPECT_TRUE(controller_->isShowing());
  EXPECT_EQ(controller_->view()->subviews().size(), 2u);
  EXPECT_EQ(panel(), nullptr);
  EXPECT_EQ(controller_->view()->closeButton()->frame(), (Rect{{580, 0}, {60, 60}}));
  runtime_.runOnMain([&] { presenter_->renderFrame(); });
  EXPECT_TRUE(test::matchesReference(presenter_->canvas(), "post-video-plain"));
}

TEST_F(PostVideoScreenTest, PanelLayoutFollowsTheIcon) {
  show(ad({{"title", "Earn 50 gems"}, {"description", nullptr}}));
  ASSERT_NE(panel(), nullptr);
  EXPECT_EQ(panel()->frame(), (Rect{{0, 280}, {640, 80}}));
  auto title = std::dynamic_pointer_cast<Label>(panelViews()[0]);
  ASSERT_NE(title, nullptr);
  EXPECT_EQ(title->frame().minX(), 8);
  EXPECT_EQ(title->frame().minY(), 12);
  EXPECT_EQ(title->frame().maxX(), 640 - 8 - 100 - 10);
  EXPECT_EQ(panelViews()[1]->frame().minX(), 0);  // the description area
  auto description = std::dynamic_pointer_cast<Label>(panelViews()[1]->subviews()[0]);
  EXPECT_EQ(description->text(), "Only install and launch game");
  EXPECT_EQ(controller_->view()->installButton()->frame(), (Rect{{532, 15}, {100, 50}}));

  controller_ = makeController("close.png");
  show(ad({{"currencyIconURL", "icon.png"}}));
  EXPECT_EQ(panelViews()[0]->frame(), (Rect{{8, 12}, {50, 56}}));  // the icon
  EXPECT_EQ(panelViews()[1]->frame().minX(), 68);                  // the title
  EXPECT_EQ(panelViews()[2]->frame().minX(), 60);                  // the description area
}

TEST_F(PostVideoScreenTest, RendersThePanelWithTheServersColours) {
  show(ad({{"currencyIconURL", "icon.png"},
           {"title", "Earn 50 gems"},
           {"description", "Install and open the game to get your reward right away"},
           {"buttonColor", "#2979FF"},
           {"buttonTextColor", "#fff"},
           {"titleColor", "#FFD54F"}}));
  runtime_.runOnMain([&] { presenter_->renderFrame(); });
  EXPECT_TRUE(test::matchesReference(presenter_->canvas(), "post-video-motivated"));
}

TEST_F(PostVideoScreenTest, AnInvalidColourStopsThePanelAtThatElement) {
  show(ad({{"titleColor", "#fffff"}}));
  ASSERT_NE(panel(), nullptr);
  ASSERT_EQ(panelViews().size(), 1u);  // the title, and nothing after it
  EXPECT_EQ(controller_->view()->installButton(), nullptr);
  auto exceptions = context_.analytics().exceptions();
  ASSERT_EQ(exceptions.size(), 1u);
  EXPECT_EQ(exceptions[0].name, "Invalid color value");
  EXPECT_EQ(exceptions[0].className, "ZVPostVideoView");
  EXPECT_EQ(exceptions[0].method, "setMotivatedView");
  // The screen still works: it closes.
  runtime_.runOnMain([&] { EXPECT_TRUE(presenter_->performAction(ScreenAction::Close)); });
}

TEST_F(PostVideoScreenTest, ImageAndInstallButtonAreClicksThatKeepTheScreen) {
  show(ad({{"title", "Earn"}}));
  runtime_.runOnMain([&] { presenter_->tap({300, 100}); });  // the image
  runtime_.runOnMain([&] { presenter_->tap({580, 320}); });  // the install button
  // The controller's A button.
  runtime_.runOnMain([&] { presenter_->performAction(ScreenAction::CallToAction); });
  EXPECT_EQ(delegate_->calls, (std::vector<std::string>{"tapTarget", "tapTarget", "tapTarget"}));
  EXPECT_TRUE(controller_->isShowing());
}

TEST_F(PostVideoScreenTest, CloseSlidesOutThenReleasesTheWindow) {
  show(ad());
  runtime_.runOnMain([&] { presenter_->tap({610, 30}); });
  EXPECT_EQ(delegate_->calls,
            (std::vector<std::string>{"tapClosePostVideo", "videoWindowWillClose"}));
  // Taps during the slide-out go nowhere.
  runtime_.runOnMain([&] { presenter_->tap({300, 100}); });
  runtime_.advanceBy(100ms);
  EXPECT_GT(controller_->view()->translation().y, 0);
  EXPECT_LT(controller_->view()->translation().y, 360);
  EXPECT_EQ(delegate_->calls.size(), 2u);
  runtime_.advanceBy(120ms);
  EXPECT_EQ(delegate_->calls.back(), "didHidePostVideo");
  EXPECT_FALSE(controller_->isShowing());
  EXPECT_TRUE(presenter_->windows().empty());
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);  // the frame timer stopped
}

TEST_F(PostVideoScreenTest, MissingImagesLeaveEmptyViewsThatStillWork) {
  controller_ = makeController("absent.png");
  show({{"imageURL", "absent.png"}});
  EXPECT_FALSE(controller_->view()->imageView()->hasImage());
  runtime_.runOnMain([&] { presenter_->tap({610, 30}); });
  EXPECT_EQ(delegate_->calls.front(), "tapClosePostVideo");
}

}  // namespace
}  // namespace zivora::ui
