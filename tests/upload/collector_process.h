// The test collector (tools/collector/collector.py) as a child of the
// test: an HTTPS information server and an upload endpoint on loopback, with
// their behaviour switched per case through the control endpoint.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

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

  // Raw bodies of the posts so far, oldest first.
  std::vector<std::string> BodyFiles() const;
  // Number of lines in uploads.jsonl / requests.jsonl.
  std::size_t UploadCount() const;
  std::size_t InfoRequestCount() const;
  // The lines of uploads.jsonl.
  std::vector<std::string> UploadRecords() const;

 private:
  std::string state_;
  std::string json_;
  pid_t pid_ = -1;
  bool started_ = false;
};

// A value of a flat JSON text, found by key: the string without its quotes
// and escapes undone for \" and \\, or the bare number.
std::string JsonValue(const std::string& json, const std::string& key);

}  // namespace upload_test
