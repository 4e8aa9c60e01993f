#pragma once

#include <chrono>

// Moving text between the two X selections a user meets: PRIMARY (what is selected) and
// CLIPBOARD (what was copied). Carried to the GUI thread, where Qt's clipboard lives.
namespace platform::x11 {

// Puts PRIMARY's text on CLIPBOARD; false when PRIMARY has no text or the GUI thread did not
// take up the work within `guiWait`.
bool copyPrimaryToClipboard(std::chrono::milliseconds guiWait);
// Puts CLIPBOARD's text on PRIMARY; false as above.
bool copyClipboardToPrimary(std::chrono::milliseconds guiWait);

} // namespace platform::x11
