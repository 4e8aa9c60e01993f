#pragma once

#include "support/Error.h"

// Failures of text exchange with the foreground application.
class TextSelectionError : public support::Error {
public:
    // The last two arise only where the desktop lets no program type into another (Wayland
    // without a keystroke channel): the text could be neither read nor replaced another way.
    enum Case { copyFailed, pasteFailed, noTextSelected, noAccessibleText, answerOnClipboard };

    explicit TextSelectionError(Case errorCase) : case_(errorCase) {}

    [[nodiscard]] Case errorCase() const { return case_; }
    [[nodiscard]] QString errorDescription() const override;
    // The user must learn what happened (the answer is theirs to paste, or this application
    // cannot be reached here): the panel says so.
    [[nodiscard]] bool isNotice() const override {
        return case_ == answerOnClipboard || case_ == noAccessibleText;
    }

private:
    Case case_;
};
