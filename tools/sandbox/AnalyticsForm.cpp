#include "AnalyticsForm.h"

#include "SignedForm.h"

namespace zivora::sandbox {

AnalyticsForm AnalyticsForm::parse(std::string_view body) {
  constexpr std::string_view kAppId = "AppId=";
  constexpr std::string_view kParams = "&Params=";
  constexpr std::string_view kMd5 = "&md5=";
  AnalyticsForm form;
  if (body.substr(0, kAppId.size()) != kAppId) return form;
  const auto paramsAt = body.find(kParams);
  const auto md5At = body.rfind(kMd5);
  if (paramsAt == std::string_view::npos || md5At == std::string_view::npos || md5At < paramsAt) {
    return form;
  }
  form.wellFormed = true;
  form.appId = std::string(body.substr(kAppId.size(), paramsAt - kAppId.size()));
  const auto paramsStart = paramsAt + kParams.size();
  form.params = SignedForm::percentDecode(body.substr(paramsStart, md5At - paramsStart));
  form.md5 = std::string(body.substr(md5At + kMd5.size()));
  form.md5Valid = SignedForm::md5Hex(form.params) == form.md5;
  return form;
}

}  // namespace zivora::sandbox
