#include "shell/registry.h"

#include <cstring>
#include <vector>

#include "platform/machine_paths.h"
#include "shell/registry_file.h"

namespace {

// The full key path as the registry file's sections name it.
WideString KeyPathOf(const WideString& pathForm) {
  RegistryRoot root;
  WideString subKey;
  ParseRegistryPath(pathForm, root, subKey);
  WideString keyPath = RegistryRootName(root);
  if (!subKey.empty()) keyPath += u'\\' + subKey;
  return keyPath;
}

}  // namespace

WideString RegistryRootName(RegistryRoot root) {
  switch (root) {
    case RegistryRoot::kClassesRoot:
      return u"HKEY_CLASSES_ROOT";
    case RegistryRoot::kCurrentUser:
      return u"HKEY_CURRENT_USER";
    case RegistryRoot::kCurrentConfig:
      return u"HKEY_CURRENT_CONFIG";
    case RegistryRoot::kLocalMachine:
      break;
  }
  return u"HKEY_LOCAL_MACHINE";
}

void ParseRegistryPath(const WideString& pathForm, RegistryRoot& root, WideString& subKey) {
  // Exactly six characters, with case; the seventh is a separator that is
  // never looked at.
  WideString prefix = pathForm.substr(0, 6);
  if (prefix == u"\\\\HKCC") {
    root = RegistryRoot::kCurrentConfig;
  } else if (prefix == u"\\\\HKCR") {
    root = RegistryRoot::kClassesRoot;
  } else if (prefix == u"\\\\HKCU") {
    root = RegistryRoot::kCurrentUser;
  } else {
    root = RegistryRoot::kLocalMachine;
  }
  subKey = pathForm.size() > 7 ? pathForm.substr(7) : WideString();
}

WideString ReadRegistryString(const WideString& pathForm, const WideString& valueName) {
  RegistryFile file;
  if (!file.Load(platform::RegistryFilePath())) return WideString();
  const RegistryValue* value = file.FindValue(KeyPathOf(pathForm), valueName);
  if (!value) return WideString();
  if (value->type != kRegString && value->type != kRegExpandString) return WideString();
  if (value->data.empty()) return WideString();

  // Twice the stored size, zero-filled: a value stored without its
  // terminating zero still ends, at the latest in the second half.
  std::vector<char16_t> buffer(value->data.size(), u'\0');
  std::memcpy(buffer.data(), value->data.data(), value->data.size());
  WideString text;
  for (char16_t c : buffer) {
    if (c == u'\0') break;
    text += c;
  }
  return text;
}

bool WriteRegistryString(const WideString& pathForm, const WideString& valueName,
                         const WideString& value) {
  const std::string path = platform::RegistryFilePath();
  RegistryFile file;
  if (!file.Load(path)) return false;
  if (!file.SetString(KeyPathOf(pathForm), valueName, value)) return false;
  return file.Save(path);
}
