#include "platform/freedesktop/DesktopEntries.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>

namespace platform::freedesktop {

namespace {

// The first word of an Exec line, without its path; quoted programs keep their spaces.
QString programOf(const QString& exec) {
    QString program;
    const QString trimmed = exec.trimmed();
    if (trimmed.startsWith(u'"')) {
        const auto end = trimmed.indexOf(u'"', 1);
        program = trimmed.mid(1, end < 0 ? -1 : end - 1);
    } else {
        program = trimmed.section(u' ', 0, 0);
    }
    if (program == QLatin1String("env")) // "env VAR=x program ..."
        for (const QString& word : trimmed.split(u' ', Qt::SkipEmptyParts).mid(1))
            if (!word.contains(u'='))
                return QFileInfo(word).fileName();
    return QFileInfo(program).fileName();
}

std::optional<DesktopEntries::Entry> readEntry(const QString& path, const QString& id,
                                               const QString& locale) {
    constexpr qint64 largestEntry = qint64{1024} * 1024; // larger files are no desktop entries
    QFile file(path);
    if (file.size() > largestEntry || !file.open(QIODevice::ReadOnly | QIODevice::Text))
        return std::nullopt;
    const QString language = locale.section(u'_', 0, 0);
    DesktopEntries::Entry entry;
    entry.id = id;
    QString localizedFull;
    QString localizedLanguage;
    bool inMainGroup = false;
    bool hidden = false;
    bool isApplication = true;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inMainGroup || line.startsWith(u'#'))
            continue;
        const auto equals = line.indexOf(u'=');
        if (equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == QLatin1String("Name"))
            entry.name = value;
        else if (!locale.isEmpty() && key == QStringLiteral("Name[%1]").arg(locale))
            localizedFull = value;
        else if (!language.isEmpty() && key == QStringLiteral("Name[%1]").arg(language))
            localizedLanguage = value;
        else if (key == QLatin1String("StartupWMClass"))
            entry.startupWMClass = value;
        else if (key == QLatin1String("Exec"))
            entry.program = programOf(value);
        else if (key == QLatin1String("Hidden"))
            hidden = value == QLatin1String("true");
        else if (key == QLatin1String("Type"))
            isApplication = value == QLatin1String("Application");
    }
    if (!localizedFull.isEmpty())
        entry.name = localizedFull;
    else if (!localizedLanguage.isEmpty())
        entry.name = localizedLanguage;
    if (hidden || !isApplication || entry.name.isEmpty())
        return std::nullopt;
    return entry;
}

bool same(const QString& a, const QString& b) {
    return !a.isEmpty() && a.compare(b, Qt::CaseInsensitive) == 0;
}

} // namespace

QStringList DesktopEntries::standardDataDirs() {
    QStringList dirs;
    QString home = qEnvironmentVariable("XDG_DATA_HOME");
    if (home.isEmpty())
        home = QDir::homePath() + QStringLiteral("/.local/share");
    dirs << home;
    QString system = qEnvironmentVariable("XDG_DATA_DIRS");
    if (system.isEmpty())
        system = QStringLiteral("/usr/local/share:/usr/share");
    dirs << system.split(u':', Qt::SkipEmptyParts);
    return dirs;
}

DesktopEntries DesktopEntries::scan(const QStringList& dataDirs, const QString& locale) {
    DesktopEntries result;
    QSet<QString> seen;
    for (const QString& dataDir : dataDirs) {
        const QString root = dataDir + QStringLiteral("/applications");
        QDirIterator it(root, {QStringLiteral("*.desktop")}, QDir::Files,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            // Entries in subfolders have ids with '-' for '/', e.g. kde4-konsole.
            QString id = QDir(root).relativeFilePath(path);
            id.chop(static_cast<qsizetype>(sizeof(".desktop") - 1));
            id.replace(u'/', u'-');
            if (seen.contains(id))
                continue;
            seen.insert(id);
            if (auto entry = readEntry(path, id, locale))
                result.entries_.push_back(std::move(*entry));
        }
    }
    return result;
}

std::optional<QString> DesktopEntries::applicationName(const QString& instance,
                                                       const QString& windowClass,
                                                       const QString& processName) const {
    for (const QString& key : {windowClass, instance})
        for (const auto& entry : entries_)
            if (same(entry.startupWMClass, key))
                return entry.name;
    for (const QString& key : {instance, windowClass})
        for (const auto& entry : entries_)
            if (same(entry.id, key) || same(entry.id.section(u'.', -1), key))
                return entry.name;
    for (const QString& key : {processName, instance})
        for (const auto& entry : entries_)
            if (same(entry.program, key))
                return entry.name;
    return std::nullopt;
}

QString processName(std::int32_t pid) {
    if (pid <= 0)
        return {};
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLocal8Bit(comm.readLine(256)).trimmed();
}

} // namespace platform::freedesktop
