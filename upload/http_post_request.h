// The HTTP client behind the report post: one synchronous POST of a body
// held in memory, with every server certificate accepted.
//
// The operations follow the steps of the post one by one (create, open, set
// headers, send, read status and reply), so that each step can fail and be
// reported on its own. Built on a libcurl easy handle.
#pragma once

#include <cstddef>
#include <string>

#include "shell/wide_string.h"

typedef void CURL;
struct curl_slist;

namespace Marlowen {

class HttpPostRequest final {
 public:
  HttpPostRequest() = default;
  ~HttpPostRequest();
  HttpPostRequest(const HttpPostRequest&) = delete;
  HttpPostRequest& operator=(const HttpPostRequest&) = delete;

  // Makes the client. False when libcurl can't give a handle.
  [[nodiscard]] bool Create();
  // Any server certificate is taken, whoever signed it and whatever it names.
  void IgnoreServerCertificateErrors();
  // A synchronous POST to url, used as given (path and query kept, no
  // normalising of the path). A text that is no URL is taken here and fails
  // at the send, as libcurl checks it only then. False if it can't be stored.
  [[nodiscard]] bool Open(const WideString& url);
  // Adds one header, as "name: value". False if it can't be stored.
  [[nodiscard]] bool SetRequestHeader(const WideString& name, const WideString& value);
  // Sends length bytes of body, which must stay put until this returns, and
  // waits for the whole reply. False when no reply came (no connection,
  // TLS failure, reset, time-out).
  [[nodiscard]] bool Send(const char* body, std::size_t length);

  // The HTTP status of the reply; 0 before one came.
  long Status() const;
  // The value of a reply header; false when the reply has none of that name.
  [[nodiscard]] bool GetResponseHeader(const WideString& name, WideString& value) const;
  // The reply's body as it came.
  const std::string& ResponseBody() const { return reply_; }

 private:
  static std::size_t Collect(char* data, std::size_t size, std::size_t count, void* self);

  CURL* handle_ = nullptr;
  curl_slist* headers_ = nullptr;
  std::string reply_;
};

}  // namespace Marlowen
