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
    }
    return QStringLiteral("No text is currently selected.");
}
