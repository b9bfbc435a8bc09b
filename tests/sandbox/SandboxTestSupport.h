#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "SignedForm.h"
#include "platform/HttpClient.h"
#include "support/TempDir.h"

namespace zivora::test {

// The certificates made once per test run ($ZIVORA_TEST_CERTS), or a
// directory of this process's own when the test runs outside ctest.
inline std::filesystem::path sandboxCertDirectory() {
  if (const char* directory = std::getenv("ZIVORA_TEST_CERTS"); directory && *directory) {
    return directory;
  }
  static TempDir fallback;
  return fallback.path();
}

// The form body the SDK posts for a JSON text whose free-text values are
// already percent-encoded: the signature covers the decoded text.
inline std::string signedBody(std::string_view params) {
  return "Params=" + std::string(params) +
         "&md5=" + sandbox::SignedForm::md5Hex(sandbox::SignedForm::percentDecode(params));
}

inline platform::HttpRequest signedPost(std::string url, std::string_view params) {
  platform::HttpRequest request;
  request.url = std::move(url);
  request.body = signedBody(params);
  request.headers = {{"Content-Type", "application/x-www-form-urlencoded"},
                     {"Content-Length", std::to_string(request.body.size())}};
  return request;
}

}  // namespace zivora::test
