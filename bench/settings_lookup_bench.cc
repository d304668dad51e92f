// Reads 10,000 Int values of one group in the order of the file and reports
// the time per value, next to 1,000 reads in reverse order from the end of
// the file, where every lookup walks from the group. Run by hand:
//   build/bench/settings_lookup_bench [folder for the scratch file]
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "shell/format_string.h"
#include "support/settings_store.h"

namespace {

using namespace Marlowen;

constexpr int kValues = 10000;
constexpr int kRounds = 5;
constexpr int kReverseLookups = 1000;
constexpr char16_t kGroup[] = u"Bench";

struct Result {
  double nanosecondsPerValue = 0;
  std::int32_t fullWalks = 0;
  std::int32_t siblingHits = 0;
};

// The best of several rounds, each on a freshly opened store.
Result Measure(const WideString& path, const std::vector<WideString>& names, bool inFileOrder, int rounds,
               int lookups) {
  Result best;
  for (int round = 0; round < rounds; ++round) {
    auto store = OpenStore(path);
    long long sum = 0;
    long long expected = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int k = 0; k < lookups; ++k) {
      const int i = inFileOrder ? k : kValues - 1 - k;
      std::int32_t value = 0;
      IntValue(value, -1, names[i], kGroup, *store, false);
      sum += value;
      expected += i;
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (sum != expected) {
      std::fprintf(stderr, "wrong values read\n");
      return Result{};
    }
    const double perValue = std::chrono::duration<double, std::nano>(elapsed).count() / lookups;
    if (round == 0 || perValue < best.nanosecondsPerValue) {
      best = Result{perValue, store->fullWalks, store->siblingHits};
    }
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : "/tmp";
  const std::string file = folder + "/settings_lookup_bench." + std::to_string(getpid()) + ".xml";
  const WideString path = Utf8ToWide(file);

  std::vector<WideString> names;
  for (int i = 0; i < kValues; ++i) names.push_back(FormatString(u"value%d", i));
  {
    auto store = CreateStore(path);
    for (std::int32_t i = 0; i < kValues; ++i) IntValue(i, 0, names[i], kGroup, *store, true);
    if (!SaveStore(*store)) {
      std::fprintf(stderr, "cannot write %s\n", file.c_str());
      return 1;
    }
  }

  const Result ordered = Measure(path, names, true, kRounds, kValues);
  // One round: every lookup walks thousands of siblings.
  const Result reversed = Measure(path, names, false, 1, kReverseLookups);
  std::printf("%d values; file order best of %d rounds\n", kValues, kRounds);
  std::printf("file order:    %10.1f ns per value (full walks %d, sibling hits %d)\n",
              ordered.nanosecondsPerValue, ordered.fullWalks, ordered.siblingHits);
  std::printf("reverse, %d:   %10.1f ns per value (full walks %d, sibling hits %d)\n",
              kReverseLookups, reversed.nanosecondsPerValue, reversed.fullWalks, reversed.siblingHits);
  unlink(file.c_str());
  return 0;
}
