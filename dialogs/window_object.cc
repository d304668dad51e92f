#include "dialogs/window_object.h"

#include <QTimer>
#include <cstdint>
#include <unordered_map>

namespace dialogs_internal {
namespace {

struct WindowTable {
  std::unordered_map<std::uintptr_t, std::unique_ptr<WindowObject>> windows;
  // Handles step by 4 and start above zero, so no handle is null and none
  // looks like a small integer id.
  std::uintptr_t next = 0x10000;
};

WindowTable& Table() {
  static WindowTable* table = new WindowTable;  // outlives every static widget
  return *table;
}

}  // namespace

WindowObject::WindowObject() = default;
WindowObject::~WindowObject() = default;

HWND AddWindow(std::unique_ptr<WindowObject> window) {
  WindowTable& table = Table();
  std::uintptr_t number = table.next;
  table.next += 4;
  HWND handle = reinterpret_cast<HWND>(number);
  window->handle = handle;
  table.windows.emplace(number, std::move(window));
  return handle;
}

WindowObject* FindWindowObject(HWND handle) {
  if (handle == nullptr) return nullptr;
  WindowTable& table = Table();
  auto it = table.windows.find(reinterpret_cast<std::uintptr_t>(handle));
  return it == table.windows.end() ? nullptr : it->second.get();
}

void RemoveWindow(HWND handle) {
  WindowObject* window = FindWindowObject(handle);
  if (window == nullptr) return;
  std::vector<HWND> children = window->children;
  for (HWND child : children) RemoveWindow(child);
  for (auto& entry : window->timers) entry.second->stop();
  Table().windows.erase(reinterpret_cast<std::uintptr_t>(handle));
}

HWND FindHandleOfWidget(const QWidget* widget) {
  if (widget == nullptr) return nullptr;
  for (const auto& entry : Table().windows) {
    if (entry.second->widget == widget) return entry.second->handle;
  }
  return nullptr;
}

HWND DesktopHandle() {
  static HWND desktop = [] {
    auto window = std::make_unique<WindowObject>();
    window->kind = WindowKind::kDesktop;
    window->style = WS_VISIBLE;
    return AddWindow(std::move(window));
  }();
  return desktop;
}

}  // namespace dialogs_internal
