// Real processes for the tests of the reporter tool: the tool itself, the
// sample product that crashes into it, and the test collector that plays the
// information server and the upload endpoint.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace reporter_test {

struct ProcessResult {
  int exitStatus = -1;  // the low 8 bits of the exit value; 128 + n for signal n
  std::string standardError;
};

// Runs program with the arguments as argv[1..], in the current environment,
// and waits for it. Standard output goes to /dev/null, standard error to
// errorPath (a temporary file if empty), which the processes it starts in
// turn share.
ProcessResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& errorPath = std::string());

// The test collector as a child process, listening on loopback.
class Collector {
 public:
  explicit Collector(const std::string& stateFolder);
  ~Collector();  // stops it and waits for it
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  bool started() const { return started_; }
  // Sets MARLOWEN_INFO_SERVER and MARLOWEN_CA_BUNDLE for this process and
  // the processes it starts from now on.
  void UseAsServers() const;
  // Names of the zips it has taken, sorted.
  std::vector<std::string> Received() const;
  std::string ReceivedPath(const std::string& name) const;

 private:
  std::string state_;
  std::string infoServer_;
  std::string caBundle_;
  pid_t pid_ = -1;
  bool started_ = false;
};

// Points MARLOWEN_INFO_SERVER at a loopback port where nobody listens.
void UseUnreachableServers();

// Names of the entries of a zip, in their order in the archive.
std::vector<std::string> ZipEntries(const std::string& zipPath);

// Polls until the file holds at least `lines` lines; false after about 30 s.
bool WaitForLines(const std::string& path, std::size_t lines);

}  // namespace reporter_test
