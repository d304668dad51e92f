// System information: the operating-system decision tree fed with version
// values (and registry values in a test root's registry file), the
// architecture names, the Linux description from os-release texts, and the
// figures of this machine against what the kernel reports elsewhere.
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

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

struct RegistryValue {
  const char16_t* key;
  const char16_t* name;
  const char16_t* value;
};

struct OsCase {
  const char* label;
  std::optional<OsVersionValues> version;
  std::vector<RegistryValue> registry;
  const char16_t* expected;
};

OsVersionValues Version(std::uint32_t platform, std::uint32_t major, std::uint32_t minor, std::uint32_t build,
                        const char16_t* csd, std::uint8_t product = 0, std::uint16_t suite = 0,
                        bool extended = true) {
  OsVersionValues v;
  v.extended = extended;
  v.platformId = platform;
  v.majorVersion = major;
  v.minorVersion = minor;
  v.buildNumber = build;
  v.csdVersion = csd;
  v.productType = product;
  v.suiteMask = suite;
  return v;
}

class DescribeOsVersionTest : public ::testing::TestWithParam<OsCase> {};

TEST_P(DescribeOsVersionTest, GivesTheTextOfTheTree) {
  testing_support::TestRoot root;
  for (const RegistryValue& entry : GetParam().registry) {
    ASSERT_TRUE(WriteRegistryString(entry.key, entry.name, entry.value));
  }
  EXPECT_EQ(WideToUtf8(DescribeOsVersion(GetParam().version)), WideToUtf8(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DescribeOsVersionTest,
    ::testing::Values(
        OsCase{"NoVersion", std::nullopt, {}, u"OS information not available."},
        OsCase{"Win32s", Version(0, 3, 1, 0, u""), {}, u"Microsoft Win32s"},
        OsCase{"OtherPlatform", Version(3, 5, 0, 0, u""), {}, u"OS information unknown."},
        OsCase{"Windows95", Version(k9x, 4, 0, 950, u" A"), {}, u"Microsoft Windows 95"},
        OsCase{"Windows95OsrC", Version(k9x, 4, 0, 950, u" C"), {}, u"Microsoft Windows 95 OSR2"},
        OsCase{"Windows95OsrB", Version(k9x, 4, 0, 950, u" B"), {}, u"Microsoft Windows 95 OSR2"},
        OsCase{"Windows98Se", Version(k9x, 4, 10, 2222, u" A "), {}, u"Microsoft Windows 98 SE"},
        OsCase{"Windows98", Version(k9x, 4, 10, 1998, u""), {}, u"Microsoft Windows 98"},
        OsCase{"WindowsMe", Version(k9x, 4, 90, 3000, u" A"), {}, u"Microsoft Windows ME"},
        OsCase{"NineXUnknownMinor", Version(k9x, 4, 20, 0, u""), {}, u"OS information not available."},
        OsCase{"NineXOtherMajor", Version(k9x, 5, 0, 0, u""), {}, u"OS information not available."},
        OsCase{"XpProfessional", Version(kNt, 5, 1, 2600, u"Service Pack 3", kWorkstation, 0x100), {},
               u"Microsoft Windows XP Professional, Service Pack 3 ( Build 2600 )"},
        OsCase{"XpHome", Version(kNt, 5, 1, 2600, u"Service Pack 2", kWorkstation, 0x300), {},
               u"Microsoft Windows XP Home Edition, Service Pack 2 ( Build 2600 )"},
        OsCase{"BuildKeepsLow16Bits", Version(kNt, 5, 1, 0x05010A28, u"", kWorkstation), {},
               u"Microsoft Windows XP Professional,  ( Build 2600 )"},
        OsCase{"Server2003Web", Version(kNt, 5, 2, 3790, u"", kServer, 0x400), {},
               u"Microsoft Windows Server 2003 Family Web Edition,  ( Build 3790 )"},
        OsCase{"Server2003WebWithMoreBitsIsStandard", Version(kNt, 5, 2, 3790, u"", kServer, 0x410), {},
               u"Microsoft Windows Server 2003 Family Standard Edition,  ( Build 3790 )"},
        OsCase{"Server2003DatacenterBeforeEnterprise", Version(kNt, 5, 2, 3790, u"", kServer, 0x82), {},
               u"Microsoft Windows Server 2003 Family Datacenter Edition,  ( Build 3790 )"},
        OsCase{"Server2003Enterprise", Version(kNt, 5, 2, 3790, u"Service Pack 1", kServer, 0x2), {},
               u"Microsoft Windows Server 2003 Family Enterprise Edition, Service Pack 1 ( Build 3790 )"},
        OsCase{"Windows2000Datacenter", Version(kNt, 5, 0, 2195, u"", kServer, 0x80), {},
               u"Microsoft Windows 2000 Datacenter Server,  ( Build 2195 )"},
        OsCase{"Windows2000Advanced", Version(kNt, 5, 0, 2195, u"", kServer, 0x2), {},
               u"Microsoft Windows 2000 Advanced Server,  ( Build 2195 )"},
        OsCase{"Windows2000Server", Version(kNt, 5, 0, 2195, u"Service Pack 4", kServer, 0), {},
               u"Microsoft Windows 2000 Server, Service Pack 4 ( Build 2195 )"},
        OsCase{"Seven", Version(kNt, 6, 1, 7601, u"Service Pack 1", kWorkstation), {},
               u"OS information not available. Professional, Service Pack 1 ( Build 7601 )"},
        OsCase{"Server2012", Version(kNt, 6, 2, 9200, u"", kServer), {},
               u"OS information not available. Server 4.0,  ( Build 9200 )"},
        OsCase{"LaterEnterpriseServer", Version(kNt, 10, 0, 17763, u"", kServer, 0x2), {},
               u"OS information not available. Server 4.0, Enterprise Edition,  ( Build 17763 )"},
        OsCase{"DomainControllerHasNoEdition", Version(kNt, 5, 2, 3790, u"", kDomainController, 0x2), {},
               u"Microsoft Windows Server 2003 Family,  ( Build 3790 )"},
        OsCase{"Nt4ServicePack6a", Version(kNt, 4, 0, 1381, u"Service Pack 6", kWorkstation),
               {{kHotfix, u"", u"installed"}},
               u"Microsoft Windows NT Workstation 4.0, Service Pack 6a ( Build 1381 )"},
        OsCase{"Nt4ServicePack6CaseIgnored", Version(kNt, 4, 0, 1381, u"SERVICE PACK 6", kWorkstation),
               {{kHotfix, u"", u"1"}},
               u"Microsoft Windows NT Workstation 4.0, Service Pack 6a ( Build 1381 )"},
        OsCase{"Nt4ServicePack6WithoutHotfix", Version(kNt, 4, 0, 1381, u"Service Pack 6", kWorkstation), {},
               u"Microsoft Windows NT Workstation 4.0, Service Pack 6 ( Build 1381 )"},
        OsCase{"Nt4Server", Version(kNt, 4, 0, 1381, u"Service Pack 5", kServer, 0x2), {},
               u"Microsoft Windows NT Server 4.0, Enterprise Edition, Service Pack 5 ( Build 1381 )"},
        OsCase{"Nt3RegistryWorkstation", Version(kNt, 3, 51, 1057, u"", 0, 0, false),
               {{kProductOptions, u"ProductType", u"WinNT"}},
               u"Microsoft Windows NT WorkStation 3.51,  ( Build 1057 )"},
        OsCase{"Nt4RegistryServer", Version(kNt, 4, 0, 1381, u"Service Pack 3", 0, 0, false),
               {{kProductOptions, u"ProductType", u"lanmannt"}},
               u"Microsoft Windows NT Server 4.0, Service Pack 3 ( Build 1381 )"},
        OsCase{"Nt4RegistryAdvancedServer", Version(kNt, 4, 0, 1381, u"", 0, 0, false),
               {{kProductOptions, u"ProductType", u"ServerNT"}},
               u"Microsoft Windows NT Advanced Server 4.0,  ( Build 1381 )"},
        OsCase{"RegistryOtherProductType", Version(kNt, 4, 0, 1381, u"", 0, 0, false),
               {{kProductOptions, u"ProductType", u"Terminal"}},
               u"Microsoft Windows NT,  ( Build 1381 )"},
        OsCase{"RegistryWithoutValue", Version(kNt, 4, 0, 1381, u"", kServer, 0, false), {},
               u"Microsoft Windows NT,  ( Build 1381 )"}),
    [](const ::testing::TestParamInfo<OsCase>& info) { return std::string(info.param.label); });

TEST(ProcessorArchitectureNameTest, NamesTheKnownNumbersOnly) {
  const std::vector<std::pair<std::uint32_t, const char16_t*>> table = {
      {0, u"Intel"}, {1, u"Mips"},  {2, u"Alpha"}, {3, u"PPC"},         {4, u"Unknown"},  {5, u"Unknown"},
      {6, u"IA64"},  {9, u"AMD64"}, {10, u"IA32 on WIN64"}, {12, u"Unknown"}, {0xFFFF, u"Unknown"},
      {0x10009, u"Unknown"}};
  for (const auto& [value, name] : table) {
    EXPECT_EQ(WideToUtf8(SystemInformationT::ProcessorArchitectureName(value)), WideToUtf8(name)) << value;
  }
  EXPECT_EQ(ArchitectureFromMachineName("x86_64"), 9u);
  EXPECT_EQ(ArchitectureFromMachineName("i686"), 0u);
  EXPECT_EQ(ArchitectureFromMachineName("aarch64"), 12u);
  EXPECT_EQ(ArchitectureFromMachineName("riscv64"), 0xFFFFu);
}

struct LinuxCase {
  const char* label;
  const char* osRelease;
  KernelFacts kernel;
  const char* expected;
};

class DescribeLinuxSystemTest : public ::testing::TestWithParam<LinuxCase> {};

TEST_P(DescribeLinuxSystemTest, JoinsDistributionAndKernel) {
  EXPECT_EQ(WideToUtf8(DescribeLinuxSystem(GetParam().osRelease, GetParam().kernel)), GetParam().expected);
}

constexpr KernelFacts kKernel{"Linux", "6.1.0-18-amd64", "#1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1 (2024-02-01)"};

INSTANTIATE_TEST_SUITE_P(
    Cases, DescribeLinuxSystemTest,
    ::testing::Values(
        LinuxCase{"PrettyName", "NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n", kKernel,
                  "Debian GNU/Linux 12 (bookworm), Linux 6.1.0-18-amd64 "
                  "( #1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1 (2024-02-01) )"},
        LinuxCase{"NameAndVersion", "# comment\nNAME=Fedora\nVERSION='39 (Server Edition)'\n", kKernel,
                  "Fedora 39 (Server Edition), Linux 6.1.0-18-amd64 "
                  "( #1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1 (2024-02-01) )"},
        LinuxCase{"EscapesAndBlanks", "  PRETTY_NAME=\"Say \\\"hi\\\" \\\\ OS\"  \r\n", KernelFacts{"Linux", "5.4", ""},
                  "Say \"hi\" \\ OS, Linux 5.4"},
        LinuxCase{"KeyMustMatchWhole", "PRETTY_NAME_X=wrong\nNAME=Alpine\n", KernelFacts{"Linux", "6.6", ""},
                  "Alpine, Linux 6.6"},
        LinuxCase{"NoOsRelease", "", kKernel,
                  "Linux 6.1.0-18-amd64 ( #1 SMP PREEMPT_DYNAMIC Debian 6.1.76-1 (2024-02-01) )"},
        LinuxCase{"NoKernel", "PRETTY_NAME=Arch Linux\n", KernelFacts{}, "Arch Linux"},
        LinuxCase{"Nothing", "", KernelFacts{}, "OS information not available."}),
    [](const ::testing::TestParamInfo<LinuxCase>& info) { return std::string(info.param.label); });

TEST(SystemInformationTest, FiguresAgreeWithTheKernel) {
  const SystemInformationT info;
  struct utsname names {};
  ASSERT_EQ(uname(&names), 0);
  const std::string os = WideToUtf8(info.os);
  EXPECT_NE(os.find(names.release), std::string::npos) << os;
  EXPECT_EQ(info.os, SystemInformationT::DescribeOperatingSystem());

  const std::u16string architecture =
      SystemInformationT::ProcessorArchitectureName(ArchitectureFromMachineName(names.machine));
  EXPECT_EQ(info.processorArchitecture, architecture);
  EXPECT_EQ(info.processorOemId, architecture);
  if (std::string(names.machine) == "x86_64") {
    EXPECT_EQ(WideToUtf8(info.processorArchitecture), "AMD64");
    EXPECT_GT(info.processorLevel, 0u);  // the cpu family: 6, 15, 23, 25 ...
    EXPECT_LT(info.processorLevel, 0x100u);
  }
  EXPECT_EQ(info.processorCount, static_cast<std::uint32_t>(get_nprocs()));
  EXPECT_NE(info.processorMask, 0u);
  EXPECT_EQ(info.pageSize, static_cast<std::uint32_t>(getpagesize()));

  struct sysinfo kernel {};
  ASSERT_EQ(sysinfo(&kernel), 0);
  const std::uint64_t totalRam = static_cast<std::uint64_t>(kernel.totalram) * kernel.mem_unit;
  // /proc/meminfo counts whole KiB.
  EXPECT_EQ(info.totalPhysical, totalRam / 1024 * 1024);
  EXPECT_LE(info.availablePhysical, info.totalPhysical);
  EXPECT_GT(info.availablePhysical, 0u);
  EXPECT_EQ(info.totalCommitted,
            info.totalPhysical + static_cast<std::uint64_t>(kernel.totalswap) * kernel.mem_unit / 1024 * 1024);
  EXPECT_LE(info.availableCommitted, info.totalCommitted);
  EXPECT_LE(info.memoryLoad, 100u);
  EXPECT_EQ(info.memoryLoad, (info.totalPhysical - info.availablePhysical) * 100 / info.totalPhysical);
  EXPECT_GT(info.totalVirtual, info.availableVirtual);
  EXPECT_GT(info.availableVirtual, 0u);
  EXPECT_EQ(info.availableExtended, 0u);
}

}  // namespace
}  // namespace Marlowen
