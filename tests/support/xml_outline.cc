#include "xml_outline.h"

#include <cstdio>

#include "run_command.h"
#include "test_root.h"

namespace settings_test {

namespace {

constexpr char kOutlineScript[] = R"PY(
import sys, xml.etree.ElementTree as ET
def walk(element, depth):
    attrs = " ".join("%s=%s" % (k, v) for k, v in sorted(element.attrib.items()))
    line = "  " * depth + element.tag + (" " + attrs if attrs else "")
    if len(element) == 0 and element.text:
        line += ": " + element.text
    print(line)
    for child in element:
        walk(child, depth + 1)
try:
    walk(ET.parse(sys.argv[1]).getroot(), 0)
except Exception as error:
    print("ERROR", error)
)PY";

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'') quoted += "'\\''"; else quoted += c;
  }
  return quoted + "'";
}

}  // namespace

std::string XmlOutline(const std::string& path) {
  const std::string script = path + ".outline.py";
  testing_support::WriteFileText(script, kOutlineScript);
  std::string output = testing_support::RunCommand("python3 " + Quote(script) + " " + Quote(path)).output;
  std::remove(script.c_str());
  return output;
}

void WriteSettingsXml(const std::string& path, const std::string& body) {
  testing_support::MakeFolders(path.substr(0, path.rfind('/')));
  testing_support::WriteFileText(path, "<?xml version=\"1.0\"?>\n<Marlowen_Settings>" + body + "</Marlowen_Settings>\n");
}

}  // namespace settings_test
