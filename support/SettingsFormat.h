#pragma once

#include <QSettings>
#include <QVariant>
#include <memory>

// The format of Mendwise's settings file: Qt's INI text (the same file, ~/.config/Mendwise/
// Mendwise.conf, and the same syntax, so files written before or edited by hand read the same),
// but every value stays text. Qt's own INI reader decodes "@Variant(...)" values through
// QDataStream as soon as the file is opened: a damaged or foreign file could make it allocate
// gigabytes or build a picture, which aborts a process without a GUI. Here such a value reads as
// bytes, which no setting accepts, so the setting falls back to its default.
namespace support {

// Registered with QSettings on first use; safe from any thread.
QSettings::Format settingsFormat();

// The user's settings store (organization and application "Mendwise").
std::unique_ptr<QSettings> openUserSettings();

namespace ini {
// One value as the INI text holds it (without the key): a QString, a QStringList for an
// unquoted comma list, or QByteArray for Qt's typed "@Name(...)" forms.
QVariant parseValue(const QString& text);
// The text that parseValue reads back as `value` (strings, lists of strings, Booleans; any
// other type as its string form).
QString formatValue(const QVariant& value);
} // namespace ini

} // namespace support
