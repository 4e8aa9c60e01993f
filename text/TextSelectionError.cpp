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
            "This application does not share its selected text, and this desktop lets no "
            "program type into it to copy the text.");
    case answerOnClipboard:
        return QStringLiteral("The answer is on the clipboard: press Ctrl+V to paste it.");
    }
    return QStringLiteral("No text is currently selected.");
}
