// Windows a person can look at: the module's file-information dialog and about box.
// On Windows they are real windows, kept on screen by a message loop that routes the
// host's modeless dialogs (ZCoreIsDialogMessage); on Linux the platform layer's are
// headless (the about box is written to standard error), so there is nothing to keep.
#pragma once

#include <functional>

namespace kxhost {

// Runs the message loop for `seconds` (or until no modeless dialog is left), so that
// the open dialogs are drawn and answer a person's input. Linux: returns at once.
void KeepDialogsShown(double seconds);

// Runs `open`, which shows a modal message box on this thread and returns when the box
// is closed. On Windows the box is found after `seconds` on screen, its caption and text
// are written to standard error as "caption: text" (what Linux's headless box writes),
// and it is closed with OK; false when no box appeared. Linux: runs `open`; true.
bool RunMessageBoxClosedAfter(double seconds, const std::function<void()>& open);

}  // namespace kxhost
