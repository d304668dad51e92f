// Dialog templates: what a dialog looks like before it exists, as a table of
// controls placed in dialog units. DialogBoxParamW finds a template by its id
// among the registered ones; DialogBoxIndirectParamW takes one directly.
#pragma once

#include <cstdint>
#include <vector>

#include "dialogs/window_messages.h"
#include "dialogs/window_types.h"

enum class ControlKind {
  kStaticText,     // left-aligned text, wraps at word boundaries
  kPushButton,     // sends BN_CLICKED
  kDefPushButton,  // the same, and the button that Enter presses
  kCheckBox,       // automatic check box; BN_CLICKED
  kRadioButton,    // automatic radio button; a click clears the others of its group
  kEdit,           // one-line edit with a border; EN_CHANGE on every change
  kGroupBox,       // frame with a title; it does not contain the controls it surrounds
  kIcon,           // image of a registered icon resource, number in iconResource
  kProgressBar,    // range 0 to 100 until PBM_SETRANGE32
  kLink,           // text with <A ID=".." HREF="..">..</A> links; WM_NOTIFY on activation
  kFrame,          // empty rectangle, such as a placeholder for a link made later
};

// One control. Rectangles are in dialog units of the template's font. A
// radio-button group begins at a control with WS_GROUP and runs up to the
// next control with WS_GROUP; the first control is always a group start.
struct DialogControl {
  ControlKind kind = ControlKind::kStaticText;
  int id = -1;  // -1 for controls that are never addressed
  const char16_t* text = u"";
  std::int16_t x = 0;
  std::int16_t y = 0;
  std::int16_t cx = 0;
  std::int16_t cy = 0;
  DWORD style = WS_VISIBLE;
  int iconResource = 0;  // kIcon only
};

// A dialog. Its size is that of the client area, in dialog units. The
// position is relative to the owner's client area, or to the screen for a
// dialog without owner.
struct DialogTemplate {
  int id = 0;
  const char16_t* caption = u"";
  DWORD style = WS_POPUP | WS_CAPTION | WS_SYSMENU | DS_MODALFRAME | DS_SETFONT;
  DWORD exStyle = 0;
  std::int16_t x = 0;
  std::int16_t y = 0;
  std::int16_t cx = 0;
  std::int16_t cy = 0;
  // With DS_SETFONT. A family that the machine lacks falls back to its
  // default sans-serif face, and the dialog units follow that face.
  const char16_t* fontName = u"Microsoft Sans Serif";
  int pointSize = 8;
  int weight = 400;
  std::vector<DialogControl> controls;
};

// Makes a template findable by its id. The template must live as long as the
// process may show it (a static table). A second registration of an id
// replaces the first. Not thread-safe: register before the first dialog.
void RegisterDialogTemplate(const DialogTemplate* dialogTemplate);

// The registered template with that id, or null.
const DialogTemplate* FindDialogTemplate(int id);

// Gives an icon resource its image: the bytes of a PNG (or any format that
// the toolkit reads), copied. An icon control whose resource has no image
// stays empty. Answers false if the bytes are not an image.
bool RegisterIconResource(int resourceId, const std::uint8_t* data, std::size_t size);
