#include "dialogs/dialog_template.h"

#include <QByteArray>
#include <QImage>
#include <QPixmap>
#include <map>

namespace {

std::map<int, const DialogTemplate*>& Templates() {
  static std::map<int, const DialogTemplate*> templates;
  return templates;
}

std::map<int, QByteArray>& Icons() {
  static std::map<int, QByteArray> icons;
  return icons;
}

}  // namespace

void RegisterDialogTemplate(const DialogTemplate* dialogTemplate) {
  if (dialogTemplate != nullptr) Templates()[dialogTemplate->id] = dialogTemplate;
}

const DialogTemplate* FindDialogTemplate(int id) {
  auto it = Templates().find(id);
  return it == Templates().end() ? nullptr : it->second;
}

bool RegisterIconResource(int resourceId, const std::uint8_t* data, std::size_t size) {
  QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
  QImage probe;
  if (data == nullptr || !probe.loadFromData(bytes)) return false;
  Icons()[resourceId] = bytes;
  return true;
}

namespace dialogs_internal {

// Pixmaps need the running application, so the bytes are decoded only when a
// dialog is built.
QPixmap IconResourcePixmap(int resourceId) {
  QPixmap pixmap;
  auto it = Icons().find(resourceId);
  if (it != Icons().end()) pixmap.loadFromData(it->second);
  return pixmap;
}

}  // namespace dialogs_internal
