// An outline of an XML file as read by an independent parser (python3's
// xml.etree), so that tests check the file format without trusting the
// store's own reader. One line per element, two blanks of indent per level:
//   tag attr=value attr=value: text
// with attributes sorted by name, and text shown for leaf elements only.
#pragma once

#include <string>

namespace settings_test {

// The outline, or a line starting with "ERROR" if the file doesn't parse.
std::string XmlOutline(const std::string& path);

// Writes a settings file by hand, its folders first: the root element
// around `body`.
void WriteSettingsXml(const std::string& path, const std::string& body);

}  // namespace settings_test
