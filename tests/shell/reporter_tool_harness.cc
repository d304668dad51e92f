#include "reporter_tool_harness.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "test_root.h"

extern char** environ;

namespace reporter_test {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(20);
constexpr int kPollRounds = 1500;  // 30 s

pid_t Spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::string& stdoutPath, const std::string& stderrPath) {
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = -1;
  if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

int WaitStatus(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// A value of the collector's env file, "NAME=value" per line.
std::string EnvValue(const std::string& text, const std::string& name) {
  const std::string key = name + "=";
  std::size_t at = text.find(key);
  if (at == std::string::npos) return std::string();
  at += key.size();
  return text.substr(at, text.find('\n', at) - at);
}

}  // namespace

ProcessResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& errorPath) {
  std::string path = errorPath;
  if (path.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/ml-tool-stderr.XXXXXX";
    const int errorFd = mkstemp(pattern.data());
    if (errorFd >= 0) close(errorFd);
    path = pattern;
  }
  ProcessResult result;
  const pid_t pid = Spawn(program, arguments, "/dev/null", path);
  if (pid > 0) result.exitStatus = WaitStatus(pid);
  result.standardError = testing_support::ReadFileText(path);
  if (errorPath.empty()) unlink(path.c_str());
  return result;
}

Collector::Collector(const std::string& stateFolder) : state_(stateFolder) {
  const std::string script = testing_support::SourceDir() + "/tools/collector/collector.py";
  const std::string envFile = state_ + ".env";
  testing_support::MakeFolders(state_);
  pid_ = Spawn("/usr/bin/python3",
               {script, "--state", state_, "--env-file", envFile, "--timeout", "300"},
               "/dev/null", state_ + ".log");
  for (int round = 0; pid_ > 0 && round < kPollRounds; ++round) {
    if (testing_support::PathExists(envFile)) {
      const std::string text = testing_support::ReadFileText(envFile);
      infoServer_ = EnvValue(text, "MARLOWEN_INFO_SERVER");
      caBundle_ = EnvValue(text, "MARLOWEN_CA_BUNDLE");
      started_ = !infoServer_.empty() && !caBundle_.empty();
      break;
    }
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
      pid_ = -1;
      break;
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

Collector::~Collector() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
}

void Collector::UseAsServers() const {
  setenv("MARLOWEN_INFO_SERVER", infoServer_.c_str(), 1);
  setenv("MARLOWEN_CA_BUNDLE", caBundle_.c_str(), 1);
}

std::vector<std::string> Collector::Received() const {
  return testing_support::ListFolder(state_ + "/received");
}

std::string Collector::ReceivedPath(const std::string& name) const {
  return state_ + "/received/" + name;
}

void UseUnreachableServers() {
  // A port that was free a moment ago: bound, then released unlistened.
  int socketFd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(socketFd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(socketFd, reinterpret_cast<sockaddr*>(&address), &length);
  close(socketFd);
  const std::string server = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  setenv("MARLOWEN_INFO_SERVER", server.c_str(), 1);
}

std::vector<std::string> ZipEntries(const std::string& zipPath) {
  std::vector<std::string> entries;
  const std::string command = "unzip -Z1 '" + zipPath + "' 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return entries;
  char line[4096];
  while (std::fgets(line, sizeof line, pipe)) {
    std::string entry(line);
    while (!entry.empty() && (entry.back() == '\n' || entry.back() == '\r')) entry.pop_back();
    entries.push_back(entry);
  }
  pclose(pipe);
  return entries;
}

bool WaitForLines(const std::string& path, std::size_t lines) {
  for (int round = 0; round < kPollRounds; ++round) {
    const std::string text = testing_support::ReadFileText(path);
    if (static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) >= lines) return true;
    std::this_thread::sleep_for(kPollInterval);
  }
  return false;
}

}  // namespace reporter_test
