#include "collector_process.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "test_root.h"

extern char** environ;

namespace upload_test {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPoll = std::chrono::milliseconds(20);

std::vector<std::string> FileLines(const std::string& path) {
  std::vector<std::string> lines;
  if (!testing_support::PathExists(path)) return lines;
  std::istringstream text(testing_support::ReadFileText(path));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

std::size_t Discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

// One request to the control endpoint; its HTTP status, 0 without a reply.
long Control(const std::string& url, const char* method, const std::string& body) {
  CURL* curl = curl_easy_init();
  if (!curl) return 0;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method);
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Discard);
  if (!body.empty()) {
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  }
  long status = 0;
  if (curl_easy_perform(curl) == CURLE_OK) curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(curl);
  return status;
}

}  // namespace

std::string JsonValue(const std::string& json, const std::string& key) {
  const std::string lead = "\"" + key + "\":";
  std::size_t at = json.find(lead);
  if (at == std::string::npos) return {};
  at = json.find_first_not_of(' ', at + lead.size());
  std::string value;
  if (at < json.size() && json[at] == '"') {
    for (++at; at < json.size() && json[at] != '"'; ++at) {
      if (json[at] == '\\' && at + 1 < json.size()) ++at;
      value += json[at];
    }
    return value;
  }
  while (at < json.size() && json[at] != ',' && json[at] != '\n' && json[at] != '}') value += json[at++];
  return value;
}

CollectorProcess::CollectorProcess(const std::string& stateDir, const std::vector<std::string>& options) {
  const std::string source = testing_support::SourceDir();
  const std::string portFile = stateDir + ".ports.json";
  std::vector<std::string> args = {"python3", (source.empty() ? ML_SOURCE_DIR_FALLBACK : source) +
                                                  "/tools/collector/collector.py",
                                   "--state", stateDir, "--port-file", portFile, "--timeout", "300"};
  args.insert(args.end(), options.begin(), options.end());
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  // The collector repeats collector.json on stdout; only its complaints on
  // stderr belong in the test's output.
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const int spawned = posix_spawnp(&pid_, "python3", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) {
    pid_ = -1;
    return;
  }
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  while (!testing_support::PathExists(portFile)) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return;
    }
    if (Clock::now() > deadline) return;
    std::this_thread::sleep_for(kPoll);
  }
  json_ = testing_support::ReadFileText(portFile);
  started_ = !Value("uploadUrl").empty();
}

CollectorProcess::~CollectorProcess() {
  if (pid_ <= 0) return;
  // Asked through its control port rather than by a signal: its signal
  // handler takes a lock that the main loop may hold at that moment.
  const std::string control = Value("controlUrl");
  if (Control(control.substr(0, control.rfind('/')) + "/stop", "POST", "") == 0) kill(pid_, SIGTERM);
  // A collector that does not end must not hold the test.
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  int status = 0;
  while (waitpid(pid_, &status, WNOHANG) == 0) {
    if (Clock::now() > deadline) {
      kill(pid_, SIGKILL);
      waitpid(pid_, &status, 0);
      break;
    }
    std::this_thread::sleep_for(kPoll);
  }
}

std::string CollectorProcess::Value(const std::string& key) const { return JsonValue(json_, key); }

void CollectorProcess::UseAsServers() const {
  setenv("MARLOWEN_INFO_SERVER", Value("infoServer").c_str(), 1);
  setenv("MARLOWEN_CA_BUNDLE", Value("caBundle").c_str(), 1);
}

bool CollectorProcess::SetBehaviour(const std::string& overlayJson) const {
  return Control(Value("controlUrl"), "PUT", overlayJson) == 200;
}

bool CollectorProcess::ResetBehaviour() const { return Control(Value("controlUrl"), "DELETE", "") == 200; }

std::size_t CollectorProcess::UploadCount() const { return UploadRecords().size(); }

std::size_t CollectorProcess::InfoRequestCount() const {
  std::size_t count = 0;
  for (const std::string& line : FileLines(Value("requestsLog"))) count += JsonValue(line, "role") == "info";
  return count;
}

std::vector<std::string> CollectorProcess::UploadRecords() const { return FileLines(Value("uploadsLog")); }

}  // namespace upload_test
