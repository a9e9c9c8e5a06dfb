// One-button modal alert for the few messages the plug-in must put in front of the user.
// With a QApplication running it is a Qt message box; without one (headless hosts) it goes to
// the host's warning hook, ShowWarningWindow2, which such hosts log or redirect.
// Main thread only.
#pragma once

class OrvOCDialog {
public:
    // Shows title as the main text and message as the informative text (both UTF-8; null reads
    // as ""), with a warning icon and one button titled with the localised "OK", and returns
    // when the user has closed it.
    void popupDialog(const char* title, const char* message);
};
