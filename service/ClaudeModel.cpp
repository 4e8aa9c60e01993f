#include "service/ClaudeModel.h"

namespace {

struct Entry {
    QStringView rawValue;
    QStringView displayName;
};

// Indexed by ClaudeModel::Value.
constexpr std::array<Entry, 3> entries{{
    {u"claude-haiku-4-5", u"Haiku 4.5"},
    {u"claude-sonnet-4-6", u"Sonnet 4.6"},
    {u"claude-opus-4-6", u"Opus 4.6"},
}};

} // namespace

std::optional<ClaudeModel> ClaudeModel::fromRawValue(QStringView rawValue) {
    for (const ClaudeModel model : allCases()) {
        if (entries[model.value()].rawValue == rawValue)
            return model;
    }
    return std::nullopt;
}

const std::array<ClaudeModel, 3>& ClaudeModel::allCases() {
    static constexpr std::array<ClaudeModel, 3> cases{haiku, sonnet, opus};
    return cases;
}

QString ClaudeModel::rawValue() const {
    return entries[value_].rawValue.toString();
}

QString ClaudeModel::displayName() const {
    return entries[value_].displayName.toString();
}
