#include "locale_test_files.h"

#include "support/localization.h"

namespace locale_testing {

namespace {

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\r': out += "&#13;"; break;
      default: out += c;
    }
  }
  return out;
}

}  // namespace

std::string LocaleXml(const std::string& application, const std::vector<TestBlock>& blocks) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Marlowen_Localization application=\"" +
                    Escape(application) + "\">\n";
  for (const TestBlock& block : blocks) {
    xml += "  <Localize language=\"" + Escape(block.language) + "\">\n";
    for (const TestString& s : block.strings) {
      xml += "    <String>\n      <Original id=\"" + std::to_string(s.id) + "\">" + Escape(s.original) + "</Original>\n";
      if (s.local) xml += "      <Local>" + Escape(*s.local) + "</Local>\n";
      if (s.localNew) xml += "      <LocalNew>" + Escape(*s.localNew) + "</LocalNew>\n";
      xml += "    </String>\n";
    }
    xml += "  </Localize>\n";
  }
  return xml + "</Marlowen_Localization>\n";
}

std::vector<std::uint8_t> Utf16LeBytes(const std::u16string& text) {
  std::vector<std::uint8_t> bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<std::uint8_t>(c & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(c >> 8));
  }
  return bytes;
}

void LocalizationTest::Reset() {
  Marlowen::CloseLocalization();
  Marlowen::languageName.clear();
  Marlowen::localizationErrorCallback = nullptr;
}

std::string LocalizationTest::Folder(const std::string& relative) {
  const std::string path = root_.Path(relative);
  testing_support::MakeFolders(path);
  return path;
}

std::string LocalizationTest::WriteLocale(const std::string& folder, const std::string& name,
                                          const std::string& application, const std::vector<TestBlock>& blocks) {
  const std::string path = folder + "/" + name;
  testing_support::WriteFileText(path, LocaleXml(application, blocks));
  return path;
}

}  // namespace locale_testing
