// The test collector (tools/collector/collector.py) as a child of the
// test: an HTTPS information server and an upload endpoint on loopback, with
// their behaviour switched per case through the control endpoint.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "test_root.h"

namespace upload_test {

class CollectorProcess {
 public:
  // Starts the collector with its state under stateDir and the given extra
  // options, and waits until it listens. See started().
  explicit CollectorProcess(const std::string& stateDir,
                            const std::vector<std::string>& options = {});
  ~CollectorProcess();  // stops it and waits for it
  CollectorProcess(const CollectorProcess&) = delete;
  CollectorProcess& operator=(const CollectorProcess&) = delete;

  bool started() const { return started_; }
  // A value of collector.json: the text of a string, the digits of a number.
  std::string Value(const std::string& key) const;

  // Points MARLOWEN_INFO_SERVER and MARLOWEN_CA_BUNDLE at this collector.
  void UseAsServers() const;

  // Replaces the run-time overlay (a JSON object with "info" and "upload"
  // sections); in force for the next request. False if the collector
  // refused it.
  bool SetBehaviour(const std::string& overlayJson) const;
  bool ResetBehaviour() const;

  // Posts answered so far; information requests so far.
  std::size_t UploadCount() const;
  std::size_t InfoRequestCount() const;
  // The lines of uploads.jsonl.
  std::vector<std::string> UploadRecords() const;

 private:
  std::string json_;
  pid_t pid_ = -1;
  bool started_ = false;
};

// What a LogCapture drained: (severity, message), oldest first.
using LogLines = std::vector<std::pair<std::uint32_t, std::u16string>>;

// The status callback of the tests: appends (report id, status) to the
// StatusList behind data.
using StatusList = std::vector<std::pair<std::u16string, std::uint32_t>>;
inline void RecordStatus(const std::u16string& reportId, std::uint32_t status, void* data) {
  static_cast<StatusList*>(data)->emplace_back(reportId, status);
}

// A value of a flat JSON text, found by key: the string without its quotes
// and escapes undone for \" and \\, or the bare number.
std::string JsonValue(const std::string& json, const std::string& key);

// A test with its own root, a log listener in it and the collector as the
// servers of the upload chain.
class CollectorTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(log_.bound());
    ASSERT_TRUE(collector_.started());
    collector_.UseAsServers();
  }
  void TearDown() override {
    unsetenv("MARLOWEN_INFO_SERVER");
    unsetenv("MARLOWEN_CA_BUNDLE");
  }
  // Whether the information request left a CA file in the temporary folder.
  bool NoCaFileLeft() const {
    for (const auto& name : testing_support::ListFolder(root_.Path("tmp"))) {
      if (name.rfind("MLC", 0) == 0) return false;
    }
    return true;
  }

  testing_support::TestRoot root_;
  testing_support::LogCapture log_{root_};
  CollectorProcess collector_{root_.Path("collector")};
};

}  // namespace upload_test
