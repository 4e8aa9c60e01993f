#pragma once

#include <QMetaType>
#include <QString>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

// The models the user can choose from. A value type: `ClaudeModel model = ClaudeModel::sonnet;`,
// switch over `model.value()`, compare with ==, use as a hash key.
class ClaudeModel {
public:
    enum Value : std::uint8_t { haiku, sonnet, opus };

    // The default model, used when no valid choice is stored.
    constexpr ClaudeModel() = default;
    constexpr ClaudeModel(Value value) : value_(value) {} // NOLINT(google-explicit-constructor)

    // The case whose identifier equals `rawValue` exactly (case-sensitive, no trimming).
    [[nodiscard]] static std::optional<ClaudeModel> fromRawValue(QStringView rawValue);
    // haiku, sonnet, opus: the order of the settings window's picker.
    [[nodiscard]] static const std::array<ClaudeModel, 3>& allCases();

    [[nodiscard]] constexpr Value value() const { return value_; }
    // The model identifier sent to the service and stored in the settings.
    [[nodiscard]] QString rawValue() const;
    [[nodiscard]] QString displayName() const;

    friend constexpr bool operator==(ClaudeModel, ClaudeModel) = default;

private:
    Value value_ = haiku;
};

Q_DECLARE_METATYPE(ClaudeModel)
