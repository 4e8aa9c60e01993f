#include "hotkeys/Localization.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

// The resource is built into a static library: referencing its initializer keeps it linked.
static void initHotkeysResources() {
    Q_INIT_RESOURCE(hotkeys_strings);
}

namespace Hotkeys {

namespace {

const QString bundleName = QStringLiteral("Hotkeys_Hotkeys.bundle");

QHash<QString, QString> readTable(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    QHash<QString, QString> table;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it.value().isString())
            table.insert(it.key(), it.value().toString());
    }
    return table;
}

// The table of the first of the user's languages the bundle has, else English.
QHash<QString, QString> loadTable() {
    const QString& bundle = BundleFinder::bundlePath();
    if (bundle.isEmpty())
        return {};
    QStringList languages;
    for (const QString& language : QLocale().uiLanguages()) {
        languages << language << language.section(u'-', 0, 0);
    }
    languages << QStringLiteral("en");
    for (const QString& language : languages) {
        const QString path = bundle + u'/' + language + QStringLiteral(".lproj/Localizable.json");
        if (QFile::exists(path))
            return readTable(path);
    }
    return {};
}

} // namespace

const QString& BundleFinder::bundlePath() {
    static const QString path = [] {
        initHotkeysResources();
        QStringList candidates;
        if (QCoreApplication::instance())
            candidates << QCoreApplication::applicationDirPath();
        candidates << QStringLiteral(":");
        for (const QString& folder : candidates) {
            QString candidate = folder + u'/' + bundleName;
            if (QDir(candidate).exists())
                return candidate;
        }
        return QString();
    }();
    return path;
}

QString localizedString(const QString& key) {
    static const QHash<QString, QString> table = loadTable();
    return table.value(key, key);
}

} // namespace Hotkeys
