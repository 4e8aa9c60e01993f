#pragma once

#include "support/Error.h"

// Failures of text exchange with the foreground application.
class TextSelectionError : public support::Error {
public:
    enum Case { copyFailed, pasteFailed, noTextSelected };

    explicit TextSelectionError(Case errorCase) : case_(errorCase) {}

    [[nodiscard]] Case errorCase() const { return case_; }
    [[nodiscard]] QString errorDescription() const override;

private:
    Case case_;
};
