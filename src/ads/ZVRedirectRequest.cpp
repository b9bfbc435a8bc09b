#include "ads/ZVRedirectRequest.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "util/Guard.h"

namespace zivora {
namespace {

platform::HttpResponse probe(Context& context, const std::string& url) {
  platform::HttpRequest request;
  request.method = "GET";
  request.url = url;
  request.followRedirects = false;
  request.freshConnection = true;
  platform::HttpResponse response = context.http().perform(request);
  // Only the status and "Location" matter; the page is never read.
  response.body.clear();
  return response;
}

}  // namespace

ZVRedirectRequest::ZVRedirectRequest(std::string url) : url_(std::move(url)) {}

void ZVRedirectRequest::start(Completion completion) {
  guarded("ZVRedirectRequest", "start", [&] {
    auto context = Context::current();
    if (!context) throw std::logic_error("no context");
    context->runtime().globalQueue().async(
        [context, url = url_, completion = std::move(completion)] {
          platform::HttpResponse response;
          guarded("ZVRedirectRequest", "startDispatch", [&] { response = probe(*context, url); });
          // The caller waits for an answer: a failed probe still completes,
          // with status 0.
          if (response.status == 0 && response.error.empty()) response.error = "probe failed";
          if (completion) {
            guarded("ZVRedirectRequest", "startDispatch", [&] { completion(response); });
          }
        });
  });
}

}  // namespace zivora
