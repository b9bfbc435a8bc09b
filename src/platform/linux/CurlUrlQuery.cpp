#include <curl/curl.h>

#include <memory>

#include "util/UrlQuery.h"

namespace zivora {

std::optional<std::string> UrlQuery::append(std::string_view url, std::string_view item) {
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
  std::string text(url);
  if (!handle || curl_url_set(handle.get(), CURLUPART_URL, text.c_str(),
                              CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
    return std::nullopt;
  }
  std::string query(item);
  char* rebuilt = nullptr;
  if (curl_url_set(handle.get(), CURLUPART_QUERY, query.c_str(), CURLU_APPENDQUERY) != CURLUE_OK ||
      curl_url_get(handle.get(), CURLUPART_URL, &rebuilt, 0) != CURLUE_OK || !rebuilt) {
    return text;
  }
  std::string result(rebuilt);
  curl_free(rebuilt);
  return result;
}

}  // namespace zivora
