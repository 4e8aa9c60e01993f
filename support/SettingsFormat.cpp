#include "support/SettingsFormat.h"

#include <QIODevice>
#include <QStringList>
#include <memory>

namespace support {

namespace {

bool isHex(QChar c) {
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

// Qt's key escapes: %XX and %UXXXX for other characters, a backslash for a slash.
QString unescapeKey(const QString& key) {
    QString result;
    result.reserve(key.size());
    for (qsizetype i = 0; i < key.size(); ++i) {
        const QChar c = key.at(i);
        if (c == u'\\') {
            result += u'/';
            continue;
        }
        if (c == u'%') {
            const bool wide = i + 1 < key.size() && key.at(i + 1) == u'U';
            const qsizetype digits = wide ? 4 : 2;
            const qsizetype start = i + (wide ? 2 : 1);
            const QStringView hex = QStringView(key).mid(start, digits);
            bool ok = hex.size() == digits;
            const auto code = ok ? hex.toUShort(&ok, 16) : ushort{0};
            if (ok) {
                result += QChar(code);
                i = start + digits - 1;
                continue;
            }
        }
        result += c;
    }
    return result;
}

QString escapeKey(const QString& key) {
    QString result;
    for (const QChar c : key) {
        const char16_t u = c.unicode();
        if ((u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') ||
            u == u'_' || u == u'-' || u == u'.')
            result += c;
        else if (u == u'/')
            result += u'\\';
        else if (u < 0x100)
            result += u'%' + QString::number(u, 16).toUpper().rightJustified(2, u'0');
        else
            result +=
                QStringLiteral("%U") + QString::number(u, 16).toUpper().rightJustified(4, u'0');
    }
    return result;
}

QString escapeString(const QString& text) {
    // Qt marks its typed forms with a leading @; a text that starts with one doubles it.
    const QString value = text.startsWith(u'@') ? u'@' + text : text;
    QString result = QStringLiteral("\"");
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        switch (c.unicode()) {
        case u'"':
            result += QStringLiteral("\\\"");
            break;
        case u'\\':
            result += QStringLiteral("\\\\");
            break;
        case u'\n':
            result += QStringLiteral("\\n");
            break;
        case u'\r':
            result += QStringLiteral("\\r");
            break;
        case u'\t':
            result += QStringLiteral("\\t");
            break;
        default:
            if (c.unicode() < 0x20 || c.unicode() == 0x7f) {
                result += QStringLiteral("\\x") + QString::number(c.unicode(), 16);
                // A hex escape runs on over hex digits: a quote pair ends it.
                if (i + 1 < value.size() && isHex(value.at(i + 1)))
                    result += QStringLiteral("\"\"");
            } else {
                result += c;
            }
        }
    }
    return result + u'"';
}

struct Item {
    QString text;
    qsizetype keep = 0; // length up to the last quoted or escaped character, kept from trimming
};

// Unquoted spaces around an item are not part of it.
QString trimmed(const Item& item) {
    qsizetype end = item.text.size();
    while (end > item.keep && item.text.at(end - 1).isSpace())
        --end;
    return item.text.left(end);
}

} // namespace

namespace ini {

QVariant parseValue(const QString& text) {
    QStringList items;
    Item item;
    bool quoted = false;
    bool list = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'"') {
            quoted = !quoted;
            item.keep = item.text.size();
        } else if (c == u'\\' && i + 1 < text.size()) {
            const QChar e = text.at(++i);
            static const QString from = QStringLiteral("abfnrtv'\"?\\");
            static const char16_t to[] = {u'\a', u'\b', u'\f', u'\n', u'\r', u'\t',
                                          u'\v', u'\'', u'"',  u'?',  u'\\'};
            if (const qsizetype k = from.indexOf(e); k >= 0) {
                item.text += QChar(to[k]);
            } else if (e == u'x' || (e >= u'0' && e <= u'7')) {
                const int base = e == u'x' ? 16 : 8;
                qsizetype j = e == u'x' ? i + 1 : i;
                char32_t code = 0;
                while (j < text.size() && j - i < (base == 16 ? 5 : 3) &&
                       (base == 16 ? isHex(text.at(j)) : text.at(j) >= u'0' && text.at(j) <= u'7'))
                    code = code * base + static_cast<char32_t>(text.at(j++).digitValue());
                item.text += QChar(static_cast<char16_t>(code & 0xffff));
                i = j - 1;
            } else {
                item.text += e;
            }
            item.keep = item.text.size();
        } else if (!quoted && c == u';') {
            break; // a comment
        } else if (!quoted && c == u',') {
            items.append(trimmed(item));
            item = {};
            list = true;
        } else if (!quoted && c.isSpace() && item.text.isEmpty()) {
            continue; // spaces before an item
        } else {
            item.text += c;
        }
    }
    if (list) {
        items.append(trimmed(item));
        return items;
    }
    const QString value = trimmed(item);
    if (value.startsWith(QLatin1String("@@")))
        return value.mid(1);
    if (value.startsWith(QLatin1String("@String(")) && value.endsWith(u')'))
        return value.mid(8, value.size() - 9);
    // @Variant, @ByteArray, @Rect and the like: never decoded.
    if (value.startsWith(u'@'))
        return value.toUtf8();
    return value;
}

QString formatValue(const QVariant& value) {
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    if (value.typeId() == QMetaType::QStringList) {
        QStringList parts;
        for (const QString& part : value.toStringList())
            parts << escapeString(part);
        // As in Qt's files, a list of one reads back as a text.
        return parts.join(QStringLiteral(", "));
    }
    return escapeString(value.toString());
}

} // namespace ini

namespace {

bool readSettings(QIODevice& device, QSettings::SettingsMap& map) {
    QString section;
    // A line that is not a setting is skipped rather than failing the file: the other settings
    // in a hand-edited file still count.
    for (const QString& line : QString::fromUtf8(device.readAll()).split(u'\n')) {
        const QString text = line.trimmed();
        if (text.isEmpty() || text.startsWith(u';') || text.startsWith(u'#'))
            continue;
        if (text.startsWith(u'[')) {
            const qsizetype end = text.indexOf(u']');
            if (end < 0)
                continue;
            const QString header = text.mid(1, end - 1).trimmed();
            section = header == u"%General" ? QStringLiteral("General") : unescapeKey(header);
            if (header.compare(QLatin1String("General"), Qt::CaseInsensitive) == 0)
                section.clear();
            continue;
        }
        const qsizetype equals = text.indexOf(u'=');
        if (equals <= 0)
            continue;
        const QString key = unescapeKey(text.left(equals).trimmed());
        if (key.isEmpty())
            continue;
        map.insert(section.isEmpty() ? key : section + u'/' + key,
                   ini::parseValue(text.mid(equals + 1)));
    }
    return true;
}

bool writeSettings(QIODevice& device, const QSettings::SettingsMap& map) {
    // Top-level keys go under [General], as Qt writes them; a group that is really called
    // General is written [%General].
    QString top;
    QMap<QString, QString> sections;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        const qsizetype slash = it.key().indexOf(u'/');
        const QString line =
            escapeKey(it.key().mid(slash + 1)) + u'=' + ini::formatValue(it.value()) + u'\n';
        if (slash < 0) {
            top += line;
            continue;
        }
        const QString section = it.key().left(slash);
        sections[section == u"General" ? QStringLiteral("%General") : escapeKey(section)] += line;
    }
    QString text = top.isEmpty() ? QString() : QStringLiteral("[General]\n") + top;
    for (auto it = sections.cbegin(); it != sections.cend(); ++it)
        text += (text.isEmpty() ? QString() : QStringLiteral("\n")) + u'[' + it.key() +
                QStringLiteral("]\n") + it.value();
    const QByteArray bytes = text.toUtf8();
    return device.write(bytes) == bytes.size();
}

} // namespace

QSettings::Format settingsFormat() {
    static const QSettings::Format format =
        QSettings::registerFormat(QStringLiteral("conf"), readSettings, writeSettings);
    return format;
}

std::unique_ptr<QSettings> openUserSettings() {
    return std::make_unique<QSettings>(settingsFormat(), QSettings::UserScope,
                                       QStringLiteral("Mendwise"), QStringLiteral("Mendwise"));
}

} // namespace support
