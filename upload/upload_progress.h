// Who is told of the steps of one upload: the uploader's status callback and
// its data, handed down the chain as they are.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"
#include "upload/crash_report_uploader.h"

namespace Marlowen {

struct UploadProgress {
  UploadStatusCallback callback = nullptr;
  void* callbackData = nullptr;

  // Calls the callback, if there is one.
  void Report(const WideString& reportId, std::uint32_t status) const {
    if (callback) callback(reportId, status, callbackData);
  }
};

}  // namespace Marlowen
