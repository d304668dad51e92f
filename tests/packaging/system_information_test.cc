// System information: the version decision tree (registry values in a test
// root), os-release texts, and this machine's figures against the kernel's.
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "packaging/system_information.h"
#include "shell/registry.h"
#include "test_root.h"

namespace Marlowen {
namespace {

constexpr std::uint32_t kNt = 2;
constexpr std::uint32_t k9x = 1;
constexpr std::uint8_t kWorkstation = 1;
constexpr std::uint8_t kDomainController = 2;
constexpr std::uint8_t kServer = 3;

constexpr char16_t kProductOptions[] = u"\\\\HKLM\\SYSTEM\\CurrentControlSet\\Control\\ProductOptions";
constexpr char16_t kHotfix[] = u"\\\\HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Hotfix\\Q246009";

struct OsCase {
  const char* label;
  std::optional<OsVersionValues> version;
  const char16_t* productType;  // ProductOptions in the registry, if any
  const char16_t* expected;
  bool hotfix = false;          // the Q246009 key in the registry
};

OsVersionValues Version(std::uint32_t platform, std::uint32_t major, std::uint32_t minor, std::uint32_t build,
                        const char16_t* csd, std::uint8_t product = 0, std::uint16_t suite = 0,
                        bool extended = true) {
  OsVersionValues v;
  v.extended = extended, v.platformId = platform, v.majorVersion = major, v.minorVersion = minor;
  v.buildNumber = build, v.csdVersion = csd, v.productType = product, v.suiteMask = suite;
  return v;
}

OsVersionValues Nt4Registry(const char16_t* csd) { return Version(kNt, 4, 0, 1381, csd, 0, 0, false); }

void PrintTo(const OsCase& c, std::ostream* out) { *out << c.label; }

class DescribeOsVersionTest : public ::testing::TestWithParam<OsCase> {};

TEST_P(DescribeOsVersionTest, GivesTheTextOfTheTree) {
  testing_support::TestRoot root;
  const OsCase& c = GetParam();
  EXPECT_TRUE(!c.productType || WriteRegistryString(kProductOptions, u"ProductType", c.productType));
  EXPECT_TRUE(!c.hotfix || WriteRegistryString(kHotfix, u"", u"installed"));
  EXPECT_EQ(WideToUtf8(DescribeOsVersion(c.version)), WideToUtf8(c.expected));
}

const char16_t* const kNone = nullptr;

INSTANTIATE_TEST_SUITE_P(
    Cases, DescribeOsVersionTest,
    ::testing::Values(
        OsCase{"NoVersion", std::nullopt, kNone, u"OS information not available."},
        OsCase{"Win32s", Version(0, 3, 1, 0, u""), kNone, u"Microsoft Win32s"},
        OsCase{"OtherPlatform", Version(3, 5, 0, 0, u""), kNone, u"OS information unknown."},
        OsCase{"Windows95", Version(k9x, 4, 0, 950, u" A"), kNone, u"Microsoft Windows 95"},
        OsCase{"Windows95Osr", Version(k9x, 4, 0, 950, u" C"), kNone, u"Microsoft Windows 95 OSR2"},
        OsCase{"Windows98Se", Version(k9x, 4, 10, 2222, u" A "), kNone, u"Microsoft Windows 98 SE"},
        OsCase{"Windows98", Version(k9x, 4, 10, 1998, u""), kNone, u"Microsoft Windows 98"},
        OsCase{"WindowsMe", Version(k9x, 4, 90, 3000, u" A"), kNone, u"Microsoft Windows ME"},
        OsCase{"NineXUnknownMinor", Version(k9x, 4, 20, 0, u""), kNone, u"OS information not available."},
        OsCase{"NineXOtherMajor", Version(k9x, 5, 0, 0, u""), kNone, u"OS information not available."},
        // The build keeps its low 16 bits.
        OsCase{"XpProfessional", Version(kNt, 5, 1, 0x05010A28, u"Service Pack 3", kWorkstation, 0x100), kNone,
               u"Microsoft Windows XP Professional, Service Pack 3 ( Build 2600 )"},
        OsCase{"XpHome", Version(kNt, 5, 1, 2600, u"", kWorkstation, 0x300), kNone,
               u"Microsoft Windows XP Home Edition,  ( Build 2600 )"},
        OsCase{"Server2003Web", Version(kNt, 5, 2, 3790, u"", kServer, 0x400), kNone,
               u"Microsoft Windows Server 2003 Family Web Edition,  ( Build 3790 )"},
        OsCase{"Server2003WebWithMoreBitsIsStandard", Version(kNt, 5, 2, 3790, u"", kServer, 0x410), kNone,
               u"Microsoft Windows Server 2003 Family Standard Edition,  ( Build 3790 )"},
        OsCase{"Server2003DatacenterBeforeEnterprise", Version(kNt, 5, 2, 3790, u"", kServer, 0x82), kNone,
               u"Microsoft Windows Server 2003 Family Datacenter Edition,  ( Build 3790 )"},
        OsCase{"Server2003Enterprise", Version(kNt, 5, 2, 3790, u"", kServer, 0x2), kNone,
               u"Microsoft Windows Server 2003 Family Enterprise Edition,  ( Build 3790 )"},
        OsCase{"Windows2000Datacenter", Version(kNt, 5, 0, 2195, u"", kServer, 0x80), kNone,
               u"Microsoft Windows 2000 Datacenter Server,  ( Build 2195 )"},
        OsCase{"Windows2000Advanced", Version(kNt, 5, 0, 2195, u"", kServer, 0x2), kNone,
               u"Microsoft Windows 2000 Advanced Server,  ( Build 2195 )"},
        OsCase{"Windows2000Server", Version(kNt, 5, 0, 2195, u"Service Pack 4", kServer), kNone,
               u"Microsoft Windows 2000 Server, Service Pack 4 ( Build 2195 )"},
        OsCase{"Seven", Version(kNt, 6, 1, 7601, u"Service Pack 1", kWorkstation), kNone,
               u"OS information not available. Professional, Service Pack 1 ( Build 7601 )"},
        OsCase{"Server2012", Version(kNt, 6, 2, 9200, u"", kServer), kNone,
               u"OS information not available. Server 4.0,  ( Build 9200 )"},
        OsCase{"LaterEnterpriseServer", Version(kNt, 10, 0, 17763, u"", kServer, 0x2), kNone,
               u"OS information not available. Server 4.0, Enterprise Edition,  ( Build 17763 )"},
        OsCase{"DomainControllerHasNoEdition", Version(kNt, 5, 2, 3790, u"", kDomainController, 0x2), kNone,
               u"Microsoft Windows Server 2003 Family,  ( Build 3790 )"},
        OsCase{"Nt4ServicePack6aCaseIgnored", Version(kNt, 4, 0, 1381, u"SERVICE PACK 6", kWorkstation), kNone,
               u"Microsoft Windows NT Workstation 4.0, Service Pack 6a ( Build 1381 )", true},
        OsCase{"Nt4ServicePack6WithoutHotfix", Version(kNt, 4, 0, 1381, u"Service Pack 6", kWorkstation), kNone,
               u"Microsoft Windows NT Workstation 4.0, Service Pack 6 ( Build 1381 )"},
        OsCase{"Nt3RegistryWorkstation", Version(kNt, 3, 51, 1057, u"", 0, 0, false), u"WinNT",
               u"Microsoft Windows NT WorkStation 3.51,  ( Build 1057 )"},
        OsCase{"Nt4RegistryServer", Nt4Registry(u"Service Pack 3"), u"lanmannt",
               u"Microsoft Windows NT Server 4.0, Service Pack 3 ( Build 1381 )"},
        OsCase{"Nt4RegistryAdvancedServer", Nt4Registry(u""), u"ServerNT",
               u"Microsoft Windows NT Advanced Server 4.0,  ( Build 1381 )"},
        OsCase{"RegistryOtherProductType", Nt4Registry(u""), u"Terminal", u"Microsoft Windows NT,  ( Build 1381 )"},
        OsCase{"RegistryWithoutValue", Nt4Registry(u""), kNone, u"Microsoft Windows NT,  ( Build 1381 )"}),
    [](const ::testing::TestParamInfo<OsCase>& info) { return std::string(info.param.label); });

TEST(DescribeLinuxSystemTest, JoinsDistributionAndKernel) {
  const KernelFacts kernel{"Linux", "6.1.0-18-amd64", "#1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1"};
  const struct {
    const char* osRelease;
    KernelFacts kernel;
    const char* expected;
  } cases[] = {
      {"NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n", kernel,
       "Debian GNU/Linux 12 (bookworm), Linux 6.1.0-18-amd64 ( #1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1 )"},
      {"# comment\nNAME=Fedora\nVERSION='39 (Server Edition)'\n", KernelFacts{"Linux", "6.6", ""},
       "Fedora 39 (Server Edition), Linux 6.6"},
      {"  PRETTY_NAME=\"Say \\\"hi\\\" \\\\ OS\"  \r\n", KernelFacts{"Linux", "5.4", ""}, "Say \"hi\" \\ OS, Linux 5.4"},
      {"PRETTY_NAME_X=wrong\nNAME=Alpine\n", KernelFacts{"Linux", "6.6", ""}, "Alpine, Linux 6.6"},
      {"", kernel, "Linux 6.1.0-18-amd64 ( #1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1 )"},
      {"PRETTY_NAME=Arch Linux\n", KernelFacts{}, "Arch Linux"},
      {"", KernelFacts{}, "OS information not available."},
  };
  for (const auto& c : cases) EXPECT_EQ(WideToUtf8(DescribeLinuxSystem(c.osRelease, c.kernel)), c.expected);
}

TEST(SystemInformationTest, FiguresAgreeWithTheKernel) {
  const SystemInformationT info;
  struct utsname names {};
  ASSERT_EQ(uname(&names), 0);
  EXPECT_NE(WideToUtf8(info.os).find(names.release), std::string::npos) << WideToUtf8(info.os);
  if (std::string(names.machine) == "x86_64") {
    EXPECT_EQ(info.processorArchitecture, u"AMD64");
    EXPECT_GT(info.processorLevel, 0u);  // the cpu family: 6, 15, 23, 25 ...
    EXPECT_LT(info.processorLevel, 0x100u);
  }
  EXPECT_EQ(info.processorCount, static_cast<std::uint32_t>(get_nprocs()));
  EXPECT_NE(info.processorMask, 0u);
  EXPECT_EQ(info.pageSize, static_cast<std::uint32_t>(getpagesize()));

  struct sysinfo kernel {};
  ASSERT_EQ(sysinfo(&kernel), 0);
  // /proc/meminfo counts whole KiB.
  const std::uint64_t totalRam = static_cast<std::uint64_t>(kernel.totalram) * kernel.mem_unit / 1024 * 1024;
  const std::uint64_t totalSwap = static_cast<std::uint64_t>(kernel.totalswap) * kernel.mem_unit / 1024 * 1024;
  EXPECT_EQ(info.totalPhysical, totalRam);
  EXPECT_GT(info.availablePhysical, 0u);
  EXPECT_LE(info.availablePhysical, info.totalPhysical);
  EXPECT_EQ(info.totalCommitted, totalRam + totalSwap);
  EXPECT_LE(info.availableCommitted, info.totalCommitted);
  EXPECT_LE(info.memoryLoad, 100u);
  EXPECT_GT(info.totalVirtual, info.availableVirtual);
  EXPECT_GT(info.availableVirtual, 0u);
}

// The revision word holds the model in its high byte and the stepping in its
// low byte, read here from the first processor's block of /proc/cpuinfo.
TEST(SystemInformationTest, RevisionIsModelThenStepping) {
  std::ifstream cpuInfo("/proc/cpuinfo");
  std::map<std::string, std::string> first;
  for (std::string line; std::getline(cpuInfo, line) && !line.empty();) {
    const auto colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string key = line.substr(0, colon);
    key.erase(key.find_last_not_of(" \t") + 1);
    first.emplace(key, line.substr(colon + 1));
  }
  if (!first.count("model") || !first.count("stepping")) GTEST_SKIP() << "no model and stepping on this processor";
  const unsigned model = std::stoul(first["model"]), stepping = std::stoul(first["stepping"]);
  EXPECT_EQ(SystemInformationT().processorRevision, ((model & 0xFF) << 8) | (stepping & 0xFF))
      << "model " << model << ", stepping " << stepping;
}

}  // namespace
}  // namespace Marlowen
