#include "dialogs/control_widgets.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QFocusEvent>
#include <QFrame>
#include <QGroupBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPixmap>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <algorithm>
#include <cstring>

#include "dialogs/window_api.h"

namespace dialogs_internal {

QPixmap IconResourcePixmap(int resourceId);  // dialog_template.cc

namespace {

void SendCommand(HWND control, WORD code) {
  WindowObject* object = FindWindowObject(control);
  if (object == nullptr) return;
  SendMessageW(object->parent, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(object->id), code),
               reinterpret_cast<LPARAM>(control));
}

// Copies text into a fixed zero-terminated field, cut to fit.
template <std::size_t N>
void CopyField(char16_t (&field)[N], const WideString& text) {
  std::size_t count = std::min(text.size(), N - 1);
  std::memcpy(field, text.data(), count * sizeof(char16_t));
  field[count] = 0;
}

void SendLinkNotice(HWND control, int linkIndex, UINT code) {
  WindowObject* object = FindWindowObject(control);
  if (object == nullptr || linkIndex < 0 || linkIndex >= static_cast<int>(object->links.size())) {
    return;
  }
  NMLINK notice;
  notice.hdr.hwndFrom = control;
  notice.hdr.idFrom = static_cast<UINT_PTR>(object->id);
  notice.hdr.code = code;
  notice.item.iLink = linkIndex;
  CopyField(notice.item.szID, object->links[linkIndex].id);
  CopyField(notice.item.szUrl, object->links[linkIndex].url);
  SendMessageW(object->parent, WM_NOTIFY, static_cast<WPARAM>(object->id),
               reinterpret_cast<LPARAM>(&notice));
}

// Controls of the same radio group as the one given, itself included.
std::vector<HWND> RadioGroupOf(HWND control) {
  WindowObject* object = FindWindowObject(control);
  if (object == nullptr) return {};
  WindowObject* dialog = FindWindowObject(object->parent);
  if (dialog == nullptr) return {};
  const std::vector<HWND>& all = dialog->children;
  auto self = std::find(all.begin(), all.end(), control);
  if (self == all.end()) return {};
  auto first = self;
  while (first != all.begin()) {
    WindowObject* o = FindWindowObject(*first);
    if (o != nullptr && (o->style & WS_GROUP)) break;
    --first;
  }
  auto last = self + 1;
  while (last != all.end()) {
    WindowObject* o = FindWindowObject(*last);
    if (o != nullptr && (o->style & WS_GROUP)) break;
    ++last;
  }
  return std::vector<HWND>(first, last);
}

// An automatic radio button: a click always checks it and clears the
// others of its group, never unchecks it. BM_SETCHECK clears nothing.
class RadioButton final : public QRadioButton {
 public:
  RadioButton(HWND handle, const QString& text, QWidget* parent)
      : QRadioButton(text, parent), handle_(handle) {
    setAutoExclusive(false);
  }

 protected:
  // Arrow keys move to the next or previous button of the group that can
  // take input, wrapping round, and click it.
  void keyPressEvent(QKeyEvent* event) override {
    int step = 0;
    if (event->key() == Qt::Key_Down || event->key() == Qt::Key_Right) step = 1;
    if (event->key() == Qt::Key_Up || event->key() == Qt::Key_Left) step = -1;
    if (step == 0 || event->modifiers() != Qt::NoModifier) {
      QRadioButton::keyPressEvent(event);
      return;
    }
    event->accept();
    std::vector<HWND> group = RadioGroupOf(handle_);
    auto self = std::find(group.begin(), group.end(), handle_);
    if (self == group.end()) return;
    const int count = static_cast<int>(group.size());
    int index = static_cast<int>(self - group.begin());
    for (int i = 1; i < count; ++i) {
      WindowObject* o = FindWindowObject(group[static_cast<std::size_t>(((index + step * i) % count + count) % count)]);
      if (o == nullptr || o->controlKind != ControlKind::kRadioButton) continue;
      if ((o->style & (WS_VISIBLE | WS_DISABLED)) != WS_VISIBLE) continue;
      o->widget->setFocus(Qt::OtherFocusReason);
      static_cast<QAbstractButton*>(o->widget)->click();
      return;
    }
  }
  void nextCheckState() override {
    setChecked(true);
    for (HWND other : RadioGroupOf(handle_)) {
      WindowObject* o = FindWindowObject(other);
      if (other != handle_ && o != nullptr && o->controlKind == ControlKind::kRadioButton) {
        SetControlCheck(o, false);
      }
    }
  }

 private:
  HWND handle_;
};

class EditBox final : public QLineEdit {
 public:
  EditBox(HWND handle, QWidget* parent) : QLineEdit(parent), handle_(handle) {}

 protected:
  void focusInEvent(QFocusEvent* event) override {
    QLineEdit::focusInEvent(event);
    SendCommand(handle_, EN_SETFOCUS);
  }
  void focusOutEvent(QFocusEvent* event) override {
    QLineEdit::focusOutEvent(event);
    SendCommand(handle_, EN_KILLFOCUS);
  }

 private:
  HWND handle_;
};

// Link control: the mouse activates a link with NM_CLICK; with the keyboard,
// Tab walks through the links and Enter or Space sends NM_RETURN for the
// one that has the focus.
class LinkLabel final : public QLabel {
 public:
  LinkLabel(HWND handle, QWidget* parent) : QLabel(parent), handle_(handle) {
    setTextFormat(Qt::RichText);
    setTextInteractionFlags(Qt::LinksAccessibleByMouse);
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
    setWordWrap(true);
    QObject::connect(this, &QLabel::linkActivated, this, [handle](const QString& href) {
      SendLinkNotice(handle, href.toInt(), NM_CLICK);
    });
  }

  void Render() {
    WindowObject* object = FindWindowObject(handle_);
    if (object == nullptr) return;
    QString html;
    int linkIndex = 0;
    for (const LinkMarkupPiece& piece : ParseLinkMarkup(object->markup)) {
      QString text = ToQString(piece.text).toHtmlEscaped();
      if (!piece.isLink) {
        html += text;
        continue;
      }
      if (hasFocus() && linkIndex == object->focusedLink) {
        text = QStringLiteral("<span style=\"background-color:%1; color:%2\">%3</span>")
                   .arg(palette().color(QPalette::Highlight).name(),
                        palette().color(QPalette::HighlightedText).name(), text);
      }
      html += QStringLiteral("<a href=\"%1\">%2</a>").arg(linkIndex).arg(text);
      ++linkIndex;
    }
    setText(html);
  }

 protected:
  bool event(QEvent* event) override {
    // Tab stays inside the control while another link follows.
    if (event->type() == QEvent::KeyPress) {
      auto* key = static_cast<QKeyEvent*>(event);
      WindowObject* object = FindWindowObject(handle_);
      if (object != nullptr && key->modifiers() == Qt::NoModifier && key->key() == Qt::Key_Tab &&
          object->focusedLink + 1 < static_cast<int>(object->links.size())) {
        ++object->focusedLink;
        Render();
        return true;
      }
      if (object != nullptr && key->key() == Qt::Key_Backtab && object->focusedLink > 0) {
        --object->focusedLink;
        Render();
        return true;
      }
    }
    return QLabel::event(event);
  }
  void keyPressEvent(QKeyEvent* event) override {
    WindowObject* object = FindWindowObject(handle_);
    if (object != nullptr && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter ||
                              event->key() == Qt::Key_Space)) {
      event->accept();
      SendLinkNotice(handle_, object->focusedLink, NM_RETURN);
      return;
    }
    QLabel::keyPressEvent(event);
  }
  void focusInEvent(QFocusEvent* event) override {
    QLabel::focusInEvent(event);
    WindowObject* object = FindWindowObject(handle_);
    if (object != nullptr) {
      object->focusedLink =
          event->reason() == Qt::BacktabFocusReason ? std::max(0, static_cast<int>(object->links.size()) - 1) : 0;
    }
    Render();
  }
  void focusOutEvent(QFocusEvent* event) override {
    QLabel::focusOutEvent(event);
    Render();
  }

 private:
  HWND handle_;
};

Qt::FocusPolicy FocusPolicyFor(DWORD style) { return (style & WS_TABSTOP) ? Qt::StrongFocus : Qt::ClickFocus; }

}  // namespace

DialogWidget::DialogWidget(HWND handle, QWidget* owner) : QDialog(owner), handle_(handle) {}

void DialogWidget::keyPressEvent(QKeyEvent* event) {
  if (event->modifiers() & ~(Qt::KeypadModifier)) {
    QWidget::keyPressEvent(event);
    return;
  }
  if (event->key() == Qt::Key_Escape) {
    event->accept();
    SendMessageW(handle_, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(IDCANCEL), 0),
                 reinterpret_cast<LPARAM>(GetDlgItem(handle_, IDCANCEL)));
    return;
  }
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    event->accept();
    WindowObject* dialog = FindWindowObject(handle_);
    if (dialog == nullptr) return;
    HWND target = nullptr;
    HWND defaultButton = nullptr;
    for (HWND child : dialog->children) {
      WindowObject* o = FindWindowObject(child);
      if (o == nullptr) continue;
      bool isPush = o->controlKind == ControlKind::kPushButton || o->controlKind == ControlKind::kDefPushButton;
      // The window may not be the active one (a test, a slow window
      // manager); its own focus child still tells which button is meant.
      if (isPush && o->widget != nullptr && focusWidget() == o->widget) target = child;
      if (o->controlKind == ControlKind::kDefPushButton && defaultButton == nullptr) defaultButton = child;
    }
    if (target == nullptr) target = defaultButton;
    int id = IDOK;
    if (target == nullptr) {
      target = GetDlgItem(handle_, IDOK);
    } else {
      id = GetDlgCtrlID(target);
    }
    // A disabled button can't be pressed from the keyboard either.
    if (target != nullptr && !IsWindowEnabled(target)) return;
    SendMessageW(handle_, WM_COMMAND, MAKEWPARAM(static_cast<WORD>(id), BN_CLICKED),
                 reinterpret_cast<LPARAM>(target));
    return;
  }
  QWidget::keyPressEvent(event);
}

void DialogWidget::closeEvent(QCloseEvent* event) {
  // The window stays until its procedure ends the dialog.
  event->ignore();
  SendMessageW(handle_, WM_CLOSE, 0, 0);
}

QWidget* CreateControlWidget(WindowObject* control, QWidget* dialogWidget, const QRect& rect,
                             WideStringView text, int iconResource) {
  HWND handle = control->handle;
  QString qtext = ToQString(text);
  QWidget* widget = nullptr;
  switch (control->controlKind) {
    case ControlKind::kStaticText: {
      auto* label = new QLabel(dialogWidget);
      label->setTextFormat(Qt::PlainText);
      label->setWordWrap(true);
      label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
      label->setText(qtext);
      widget = label;
      break;
    }
    case ControlKind::kPushButton:
    case ControlKind::kDefPushButton: {
      auto* button = new QPushButton(qtext, dialogWidget);
      // Enter is the dialog's to handle, as the command of a button.
      button->setAutoDefault(false);
      button->setDefault(control->controlKind == ControlKind::kDefPushButton);
      QObject::connect(button, &QPushButton::clicked, button, [handle] { SendCommand(handle, BN_CLICKED); });
      widget = button;
      break;
    }
    case ControlKind::kCheckBox: {
      auto* box = new QCheckBox(qtext, dialogWidget);
      QObject::connect(box, &QCheckBox::clicked, box, [handle] { SendCommand(handle, BN_CLICKED); });
      widget = box;
      break;
    }
    case ControlKind::kRadioButton: {
      auto* radio = new RadioButton(handle, qtext, dialogWidget);
      QObject::connect(radio, &QRadioButton::clicked, radio, [handle] { SendCommand(handle, BN_CLICKED); });
      widget = radio;
      break;
    }
    case ControlKind::kEdit: {
      auto* edit = new EditBox(handle, dialogWidget);
      edit->setText(qtext);
      if (control->style & ES_PASSWORD) edit->setEchoMode(QLineEdit::Password);
      // Connected after the first text, which the template gives, not a user.
      QObject::connect(edit, &QLineEdit::textChanged, edit, [handle] { SendCommand(handle, EN_CHANGE); });
      widget = edit;
      break;
    }
    case ControlKind::kGroupBox:
      widget = new QGroupBox(qtext, dialogWidget);
      break;
    case ControlKind::kIcon: {
      auto* label = new QLabel(dialogWidget);
      label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
      QPixmap pixmap = IconResourcePixmap(iconResource);
      if (!pixmap.isNull()) label->setPixmap(pixmap);
      widget = label;
      break;
    }
    case ControlKind::kProgressBar: {
      auto* bar = new QProgressBar(dialogWidget);
      bar->setTextVisible(false);
      widget = bar;
      break;
    }
    case ControlKind::kLink: {
      auto* link = new LinkLabel(handle, dialogWidget);
      widget = link;
      break;
    }
    case ControlKind::kFrame: {
      auto* frame = new QFrame(dialogWidget);
      frame->setFrameStyle(QFrame::Box | QFrame::Plain);
      widget = frame;
      break;
    }
  }
  control->widget = widget;
  switch (control->controlKind) {
    case ControlKind::kStaticText:
    case ControlKind::kGroupBox:
    case ControlKind::kIcon:
    case ControlKind::kFrame:
    case ControlKind::kProgressBar:
      // As on the platform the templates come from, these let clicks through
      // to whatever lies beneath and never take the focus.
      widget->setAttribute(Qt::WA_TransparentForMouseEvents);
      widget->setFocusPolicy(Qt::NoFocus);
      break;
    default:
      widget->setFocusPolicy(FocusPolicyFor(control->style));
      break;
  }
  if (control->controlKind == ControlKind::kLink) {
    control->markup = WideString(text);
    control->links.clear();
    for (LinkMarkupPiece& piece : ParseLinkMarkup(control->markup)) {
      if (piece.isLink) control->links.push_back(std::move(piece));
    }
    static_cast<LinkLabel*>(widget)->Render();
  }
  if (control->controlKind == ControlKind::kProgressBar) ApplyProgress(control);
  widget->setGeometry(rect);
  // The first control of a template lies on top of the later ones.
  widget->lower();
  widget->setEnabled(!(control->style & WS_DISABLED));
  widget->setVisible((control->style & WS_VISIBLE) != 0);
  return widget;
}

void SetControlText(WindowObject* control, WideStringView text) {
  QWidget* widget = control->widget;
  if (widget == nullptr) return;
  QString qtext = ToQString(text);
  switch (control->controlKind) {
    case ControlKind::kStaticText:
      static_cast<QLabel*>(widget)->setText(qtext);
      break;
    case ControlKind::kPushButton:
    case ControlKind::kDefPushButton:
    case ControlKind::kCheckBox:
    case ControlKind::kRadioButton:
      static_cast<QAbstractButton*>(widget)->setText(qtext);
      break;
    case ControlKind::kEdit:
      static_cast<QLineEdit*>(widget)->setText(qtext);
      break;
    case ControlKind::kGroupBox:
      static_cast<QGroupBox*>(widget)->setTitle(qtext);
      break;
    case ControlKind::kLink:
      control->markup = WideString(text);
      control->links.clear();
      for (LinkMarkupPiece& piece : ParseLinkMarkup(control->markup)) {
        if (piece.isLink) control->links.push_back(std::move(piece));
      }
      control->focusedLink = 0;
      static_cast<LinkLabel*>(widget)->Render();
      break;
    default:
      control->markup = WideString(text);  // kept for reading back only
      break;
  }
}

WideString GetControlText(const WindowObject* control) {
  QWidget* widget = control->widget;
  if (widget == nullptr) return {};
  switch (control->controlKind) {
    case ControlKind::kStaticText:
      return FromQString(static_cast<QLabel*>(widget)->text());
    case ControlKind::kPushButton:
    case ControlKind::kDefPushButton:
    case ControlKind::kCheckBox:
    case ControlKind::kRadioButton:
      return FromQString(static_cast<QAbstractButton*>(widget)->text());
    case ControlKind::kEdit:
      return FromQString(static_cast<QLineEdit*>(widget)->text());
    case ControlKind::kGroupBox:
      return FromQString(static_cast<QGroupBox*>(widget)->title());
    default:
      return control->markup;
  }
}

void SetControlCheck(WindowObject* control, bool checked) {
  if (control->controlKind != ControlKind::kCheckBox && control->controlKind != ControlKind::kRadioButton) return;
  static_cast<QAbstractButton*>(control->widget)->setChecked(checked);
}

bool GetControlCheck(const WindowObject* control) {
  if (control->controlKind != ControlKind::kCheckBox && control->controlKind != ControlKind::kRadioButton) {
    return false;
  }
  return static_cast<QAbstractButton*>(control->widget)->isChecked();
}

void ApplyProgress(WindowObject* control) {
  auto* bar = static_cast<QProgressBar*>(control->widget);
  if (control->rangeHigh > control->rangeLow) {
    bar->setRange(control->rangeLow, control->rangeHigh);
    bar->setValue(control->position);
  } else {
    // An empty range shows an empty bar; the widget would animate instead.
    bar->setRange(0, 1);
    bar->setValue(0);
  }
}

void PaintNow(QWidget* widget) {
  if (widget == nullptr || !widget->isVisible()) return;
  widget->repaint();
}

}  // namespace dialogs_internal
