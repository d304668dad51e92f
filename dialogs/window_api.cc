#include "dialogs/window_api.h"

#include <QAbstractButton>
#include <QGuiApplication>
#include <QProgressBar>
#include <QScreen>
#include <QTimer>
#include <QWidget>
#include <algorithm>
#include <cstring>

#include "dialogs/control_widgets.h"
#include "dialogs/window_object.h"

using dialogs_internal::FindWindowObject;
using dialogs_internal::WindowKind;
using dialogs_internal::WindowObject;

namespace {

bool IsButton(const WindowObject* w) {
  return w->controlKind == ControlKind::kPushButton || w->controlKind == ControlKind::kDefPushButton ||
         w->controlKind == ControlKind::kCheckBox || w->controlKind == ControlKind::kRadioButton;
}

WideString TextOf(const WindowObject* w) {
  if (w->kind == WindowKind::kDialog) {
    return w->widget ? dialogs_internal::FromQString(w->widget->windowTitle()) : WideString();
  }
  if (w->kind == WindowKind::kControl) return dialogs_internal::GetControlText(w);
  return {};
}

void SetTextOf(WindowObject* w, WideStringView text) {
  if (w->kind == WindowKind::kDialog) {
    if (w->widget) w->widget->setWindowTitle(dialogs_internal::ToQString(text));
  } else if (w->kind == WindowKind::kControl) {
    dialogs_internal::SetControlText(w, text);
    dialogs_internal::PaintNow(w->widget);
  }
}

int CopyText(const WideString& text, char16_t* buffer, int maxCount) {
  if (buffer == nullptr || maxCount <= 0) return 0;
  int count = std::min(static_cast<int>(text.size()), maxCount - 1);
  std::memcpy(buffer, text.data(), static_cast<std::size_t>(count) * sizeof(char16_t));
  buffer[count] = 0;
  return count;
}

// What the dialog manager does with a message that the procedure left.
LRESULT DefaultDialogMessage(WindowObject* dialog, UINT message, WPARAM wParam, LPARAM lParam) {
  HWND handle = dialog->handle;
  switch (message) {
    case WM_CLOSE:
      SendMessageW(handle, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(IDCANCEL), 0),
                   reinterpret_cast<LPARAM>(GetDlgItem(handle, IDCANCEL)));
      return 0;
    case WM_SETTEXT:
      SetTextOf(dialog, WideView(reinterpret_cast<const char16_t*>(lParam)));
      return TRUE;
    case WM_GETTEXT:
      return CopyText(TextOf(dialog), reinterpret_cast<char16_t*>(lParam), static_cast<int>(wParam));
    case WM_GETTEXTLENGTH:
      return static_cast<LRESULT>(TextOf(dialog).size());
    default:
      return 0;
  }
}

LRESULT DialogMessage(WindowObject* dialog, UINT message, WPARAM wParam, LPARAM lParam) {
  HWND handle = dialog->handle;
  INT_PTR answer = dialog->procedure ? dialog->procedure(handle, message, wParam, lParam) : 0;
  dialog = FindWindowObject(handle);
  if (dialog == nullptr) return 0;
  if (answer != 0) {
    return message == WM_INITDIALOG ? answer : GetWindowLongPtrW(handle, DWLP_MSGRESULT);
  }
  return DefaultDialogMessage(dialog, message, wParam, lParam);
}

LRESULT ProgressMessage(WindowObject* bar, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case PBM_SETRANGE:
    case PBM_SETRANGE32: {
      LRESULT previous = MAKELPARAM(static_cast<WORD>(bar->rangeLow), static_cast<WORD>(bar->rangeHigh));
      if (message == PBM_SETRANGE) {
        bar->rangeLow = LOWORD(static_cast<std::uintptr_t>(lParam));
        bar->rangeHigh = HIWORD(static_cast<std::uintptr_t>(lParam));
      } else {
        bar->rangeLow = static_cast<int>(wParam);
        bar->rangeHigh = static_cast<int>(lParam);
      }
      bar->position = std::clamp(bar->position, std::min(bar->rangeLow, bar->rangeHigh),
                                 std::max(bar->rangeLow, bar->rangeHigh));
      dialogs_internal::ApplyProgress(bar);
      dialogs_internal::PaintNow(bar->widget);
      return previous;
    }
    case PBM_SETPOS: {
      LRESULT previous = bar->position;
      bar->position = std::clamp(static_cast<int>(wParam), std::min(bar->rangeLow, bar->rangeHigh),
                                 std::max(bar->rangeLow, bar->rangeHigh));
      dialogs_internal::ApplyProgress(bar);
      // The bar shows each step even while a handler holds the thread.
      dialogs_internal::PaintNow(bar->widget);
      return previous;
    }
    case PBM_GETPOS:
      return bar->position;
    case PBM_GETRANGE:
      return wParam ? bar->rangeLow : bar->rangeHigh;
    default:
      return 0;
  }
}

LRESULT ControlMessage(WindowObject* control, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_SETTEXT:
      SetTextOf(control, WideView(reinterpret_cast<const char16_t*>(lParam)));
      return TRUE;
    case WM_GETTEXT:
      return CopyText(TextOf(control), reinterpret_cast<char16_t*>(lParam), static_cast<int>(wParam));
    case WM_GETTEXTLENGTH:
      return static_cast<LRESULT>(TextOf(control).size());
    case BM_GETCHECK:
      return dialogs_internal::GetControlCheck(control) ? BST_CHECKED : BST_UNCHECKED;
    case BM_SETCHECK:
      dialogs_internal::SetControlCheck(control, wParam == BST_CHECKED);
      return 0;
    case BM_CLICK:
      if (IsButton(control) && control->widget && control->widget->isEnabled()) {
        static_cast<QAbstractButton*>(control->widget)->click();
      }
      return 0;
    default:
      break;
  }
  if (control->controlKind == ControlKind::kProgressBar) return ProgressMessage(control, message, wParam, lParam);
  return 0;
}

QPoint ClientOriginOnScreen(HWND handle) {
  if (handle == nullptr) return QPoint(0, 0);
  WindowObject* w = FindWindowObject(handle);
  if (w == nullptr) return QPoint(0, 0);
  if (w->kind == WindowKind::kDesktop) {
    QScreen* screen = QGuiApplication::instance() ? QGuiApplication::primaryScreen() : nullptr;
    return screen ? screen->geometry().topLeft() : QPoint(0, 0);
  }
  return w->widget ? w->widget->mapToGlobal(QPoint(0, 0)) : QPoint(0, 0);
}

RECT ToRect(const QRect& r) {
  return RECT{r.left(), r.top(), r.left() + r.width(), r.top() + r.height()};
}

int MulDivRounded(int value, int numerator, int denominator) {
  long long product = static_cast<long long>(value) * numerator;
  long long half = denominator / 2;
  return static_cast<int>(product >= 0 ? (product + half) / denominator : (product - half) / denominator);
}

}  // namespace

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr) return 0;
  switch (w->kind) {
    case WindowKind::kDialog:
      return DialogMessage(w, message, wParam, lParam);
    case WindowKind::kControl:
      return ControlMessage(w, message, wParam, lParam);
    case WindowKind::kDesktop:
      return 0;
  }
  return 0;
}

LRESULT SendDlgItemMessageW(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam) {
  return SendMessageW(GetDlgItem(dialog, id), message, wParam, lParam);
}

LONG_PTR GetWindowLongPtrW(HWND window, int index) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr) return 0;
  switch (index) {
    case GWL_STYLE:
      return static_cast<LONG_PTR>(w->style);
    case GWL_EXSTYLE:
      return static_cast<LONG_PTR>(w->exStyle);
    case GWLP_ID:
      return w->id;
    default: {
      auto it = w->longs.find(index);
      return it == w->longs.end() ? 0 : it->second;
    }
  }
}

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || w->kind == WindowKind::kDesktop) return 0;
  if (index == GWL_STYLE || index == GWL_EXSTYLE || index == GWLP_ID) {
    // The state behind these belongs to the widgets; they are read-only here.
    return 0;
  }
  LONG_PTR previous = GetWindowLongPtrW(window, index);
  w->longs[index] = value;
  return previous;
}

HWND GetParent(HWND window) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr) return nullptr;
  return FindWindowObject(w->parent) ? w->parent : nullptr;
}

HWND GetDlgItem(HWND dialog, int id) {
  WindowObject* w = FindWindowObject(dialog);
  if (w == nullptr) return nullptr;
  for (HWND child : w->children) {
    WindowObject* c = FindWindowObject(child);
    if (c != nullptr && c->id == id) return child;
  }
  return nullptr;
}

int GetDlgCtrlID(HWND control) {
  WindowObject* w = FindWindowObject(control);
  return (w != nullptr && w->kind == WindowKind::kControl) ? w->id : 0;
}

BOOL IsWindow(HWND window) { return FindWindowObject(window) != nullptr ? TRUE : FALSE; }

BOOL IsWindowVisible(HWND window) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr) return FALSE;
  for (; w != nullptr; w = w->kind == WindowKind::kControl ? FindWindowObject(w->parent) : nullptr) {
    if (!(w->style & WS_VISIBLE)) return FALSE;
  }
  return TRUE;
}

BOOL IsWindowEnabled(HWND window) {
  WindowObject* w = FindWindowObject(window);
  return (w != nullptr && !(w->style & WS_DISABLED)) ? TRUE : FALSE;
}

BOOL EnableWindow(HWND window, BOOL enable) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || w->kind == WindowKind::kDesktop) return FALSE;
  BOOL wasDisabled = (w->style & WS_DISABLED) ? TRUE : FALSE;
  if (enable) {
    w->style &= ~WS_DISABLED;
  } else {
    w->style |= WS_DISABLED;
  }
  if (w->widget) w->widget->setEnabled(enable != FALSE);
  dialogs_internal::PaintNow(w->widget);
  return wasDisabled;
}

BOOL ShowWindow(HWND window, int command) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || w->kind == WindowKind::kDesktop) return FALSE;
  BOOL wasVisible = (w->style & WS_VISIBLE) ? TRUE : FALSE;
  bool show = command != SW_HIDE;
  if (show) {
    w->style |= WS_VISIBLE;
  } else {
    w->style &= ~WS_VISIBLE;
  }
  if (w->widget) w->widget->setVisible(show);
  // A control that disappears leaves a hole that its dialog paints over.
  if (w->kind == WindowKind::kControl) {
    WindowObject* dialog = FindWindowObject(w->parent);
    if (dialog != nullptr) dialogs_internal::PaintNow(dialog->widget);
  }
  return wasVisible;
}

BOOL SetWindowTextW(HWND window, const char16_t* text) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || w->kind == WindowKind::kDesktop) return FALSE;
  SendMessageW(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text ? text : u""));
  return TRUE;
}

BOOL SetDlgItemTextW(HWND dialog, int id, const char16_t* text) { return SetWindowTextW(GetDlgItem(dialog, id), text); }

int GetWindowTextW(HWND window, char16_t* buffer, int maxCount) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr) {
    CopyText(WideString(), buffer, maxCount);
    return 0;
  }
  return CopyText(TextOf(w), buffer, maxCount);
}

int GetWindowTextLengthW(HWND window) {
  WindowObject* w = FindWindowObject(window);
  return w == nullptr ? 0 : static_cast<int>(TextOf(w).size());
}

UINT GetDlgItemTextW(HWND dialog, int id, char16_t* buffer, int maxCount) {
  return static_cast<UINT>(GetWindowTextW(GetDlgItem(dialog, id), buffer, maxCount));
}

BOOL GetWindowRect(HWND window, RECT* rect) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || rect == nullptr) return FALSE;
  if (w->kind == WindowKind::kDesktop) {
    QScreen* screen = QGuiApplication::instance() ? QGuiApplication::primaryScreen() : nullptr;
    *rect = screen ? ToRect(screen->geometry()) : RECT{};
    return TRUE;
  }
  if (w->widget == nullptr) return FALSE;
  if (w->kind == WindowKind::kDialog) {
    *rect = ToRect(w->widget->frameGeometry());
  } else {
    *rect = ToRect(QRect(w->widget->mapToGlobal(QPoint(0, 0)), w->widget->size()));
  }
  return TRUE;
}

BOOL GetClientRect(HWND window, RECT* rect) {
  if (!GetWindowRect(window, rect)) return FALSE;
  WindowObject* w = FindWindowObject(window);
  if (w->widget != nullptr) {
    *rect = RECT{0, 0, w->widget->width(), w->widget->height()};
  } else {
    *rect = RECT{0, 0, rect->right - rect->left, rect->bottom - rect->top};
  }
  return TRUE;
}

int MapWindowPoints(HWND from, HWND to, POINT* points, UINT count) {
  QPoint shift = ClientOriginOnScreen(from) - ClientOriginOnScreen(to);
  for (UINT i = 0; points != nullptr && i < count; ++i) {
    points[i].x += shift.x();
    points[i].y += shift.y();
  }
  return static_cast<int>(MAKELPARAM(static_cast<WORD>(shift.x()), static_cast<WORD>(shift.y())));
}

int MapWindowPoints(HWND from, HWND to, RECT* rect, UINT count) {
  static_assert(sizeof(RECT) == 2 * sizeof(POINT), "a rectangle is two points");
  return MapWindowPoints(from, to, reinterpret_cast<POINT*>(rect), count);
}

HWND GetDesktopWindow() { return dialogs_internal::DesktopHandle(); }

BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int cx, int cy, UINT flags) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || w->widget == nullptr) return FALSE;
  QWidget* widget = w->widget;
  if (w->kind == WindowKind::kDialog) {
    if (!(flags & SWP_NOSIZE)) {
      QSize frameExtra = widget->frameGeometry().size() - widget->size();
      widget->setFixedSize(std::max(0, cx - frameExtra.width()), std::max(0, cy - frameExtra.height()));
    }
    if (!(flags & SWP_NOMOVE)) widget->move(x, y);
  } else {
    QRect geometry = widget->geometry();
    if (!(flags & SWP_NOMOVE)) geometry.moveTo(x, y);
    if (!(flags & SWP_NOSIZE)) geometry.setSize(QSize(cx, cy));
    widget->setGeometry(geometry);
  }
  return TRUE;
}

BOOL MapDialogRect(HWND dialog, RECT* rect) {
  WindowObject* w = FindWindowObject(dialog);
  if (w == nullptr || w->kind != WindowKind::kDialog || rect == nullptr) return FALSE;
  rect->left = MulDivRounded(rect->left, w->baseUnitX, 4);
  rect->right = MulDivRounded(rect->right, w->baseUnitX, 4);
  rect->top = MulDivRounded(rect->top, w->baseUnitY, 8);
  rect->bottom = MulDivRounded(rect->bottom, w->baseUnitY, 8);
  return TRUE;
}

BOOL UpdateWindow(HWND window) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || w->widget == nullptr) return FALSE;
  dialogs_internal::PaintNow(w->widget);
  return TRUE;
}

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, void* timerFunction) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr || w->kind == WindowKind::kDesktop || timerFunction != nullptr) return 0;
  std::unique_ptr<QTimer>& timer = w->timers[id];
  if (!timer) {
    timer = std::make_unique<QTimer>();
    QObject::connect(timer.get(), &QTimer::timeout, [window, id] { SendMessageW(window, WM_TIMER, id, 0); });
  }
  timer->start(static_cast<int>(std::min<UINT>(elapse, 0x7FFFFFFF)));
  return id != 0 ? id : 1;
}

BOOL KillTimer(HWND window, UINT_PTR id) {
  WindowObject* w = FindWindowObject(window);
  if (w == nullptr) return FALSE;
  auto it = w->timers.find(id);
  if (it == w->timers.end()) return FALSE;
  // The timer may be the one whose tick is running now: stop it here and
  // let the event loop delete it.
  it->second->stop();
  it->second.release()->deleteLater();
  w->timers.erase(it);
  return TRUE;
}
