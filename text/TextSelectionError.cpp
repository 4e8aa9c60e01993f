#include "text/TextSelectionError.h"

QString TextSelectionError::errorDescription() const {
    switch (case_) {
    case copyFailed:
        return QStringLiteral(
            "Failed to copy selected text. Make sure accessibility permissions are granted.");
    case pasteFailed:
        return QStringLiteral(
            "Failed to paste text. Make sure accessibility permissions are granted.");
    case noTextSelected:
        return QStringLiteral("No text is currently selected.");
    case noAccessibleText:
        return QStringLiteral(
            "This application does not share its text with Mendwise, and this desktop lets "
            "no program copy it.");
    case answerOnClipboard:
        return QStringLiteral("The answer is on the clipboard: press Ctrl+V to paste it.");
    }
    return QStringLiteral("No text is currently selected.");
}
