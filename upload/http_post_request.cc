#include "upload/http_post_request.h"

#include <curl/curl.h>

namespace Marlowen {

namespace {

// The post sets no time-outs of its own; these stand for the defaults of a
// plain HTTP client, so that a dead server does not hold the tool for ever
// while a slow but moving transfer of a large package still goes through.
constexpr long kConnectTimeoutSeconds = 60;
constexpr long kStallLimitSeconds = 60;
constexpr long kStallBytesPerSecond = 1;

}  // namespace

HttpPostRequest::~HttpPostRequest() {
  if (headers_) curl_slist_free_all(headers_);
  if (handle_) curl_easy_cleanup(handle_);
}

bool HttpPostRequest::Create() {
  handle_ = curl_easy_init();
  return handle_ != nullptr;
}

void HttpPostRequest::IgnoreServerCertificateErrors() {
  curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle_, CURLOPT_SSL_VERIFYHOST, 0L);
}

bool HttpPostRequest::Open(const WideString& url) {
  const std::string address = WideToUtf8(url);
  if (curl_easy_setopt(handle_, CURLOPT_URL, address.c_str()) != CURLE_OK) return false;
  curl_easy_setopt(handle_, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(handle_, CURLOPT_POST, 1L);
  // A direct connection, as the post asks for no proxy: proxy settings of
  // the environment are not picked up.
  curl_easy_setopt(handle_, CURLOPT_PROXY, "");
  curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle_, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
  curl_easy_setopt(handle_, CURLOPT_LOW_SPEED_LIMIT, kStallBytesPerSecond);
  curl_easy_setopt(handle_, CURLOPT_LOW_SPEED_TIME, kStallLimitSeconds);
  curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &HttpPostRequest::Collect);
  curl_easy_setopt(handle_, CURLOPT_WRITEDATA, this);
  return true;
}

bool HttpPostRequest::SetRequestHeader(const WideString& name, const WideString& value) {
  const std::string line = WideToUtf8(name) + ": " + WideToUtf8(value);
  curl_slist* list = curl_slist_append(headers_, line.c_str());
  if (!list) return false;
  headers_ = list;
  return curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headers_) == CURLE_OK;
}

bool HttpPostRequest::Send(const char* body, std::size_t length) {
  reply_.clear();
  // The body is sent from the caller's buffer; libcurl copies nothing.
  curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(length));
  curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body);
  return curl_easy_perform(handle_) == CURLE_OK;
}

long HttpPostRequest::Status() const {
  long status = 0;
  curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
  return status;
}

bool HttpPostRequest::GetResponseHeader(const WideString& name, WideString& value) const {
  curl_header* header = nullptr;
  if (curl_easy_header(handle_, WideToUtf8(name).c_str(), 0, CURLH_HEADER, -1, &header) !=
      CURLHE_OK) {
    return false;
  }
  value = Utf8ToWide(header->value ? header->value : "");
  return true;
}

std::size_t HttpPostRequest::Collect(char* data, std::size_t size, std::size_t count, void* self) {
  static_cast<HttpPostRequest*>(self)->reply_.append(data, size * count);
  return size * count;
}

}  // namespace Marlowen
