// A settings file that a person edited, another version wrote, or a crash cut short: loading
// it must give usable settings, and the shortcuts stored beside them must read back cleanly.
#include "FuzzSupport.h"
#include "hotkeys/Runtime.h"
#include "platform/LoginItem.h"
#include "service/AppSettings.h"
#include "support/SettingsFormat.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class NoLoginItem final : public platform::LoginItemPort {
public:
    std::optional<QString> registerLoginItem() override { return QStringLiteral("unused"); }
    std::optional<QString> unregisterLoginItem() override { return QStringLiteral("unused"); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::silenceLog();
    // No QGuiApplication, as in mendwise-rewrite: a value that Qt would decode into a picture
    // aborts such a process, so the store must never decode one.
    static int argc = 1;
    static char name[] = "fuzz_settings_load";
    static char* argv[] = {name, nullptr};
    static const QCoreApplication app(argc, argv);
    // In memory where there is /dev/shm. QSettings keeps a file it has read in a cache and reads
    // it again only when its size or modification time changed: every input gets a time of
    // its own (a name of its own would grow the cache, and the run slows down to a crawl).
    static QTemporaryDir folder(QDir("/dev/shm").exists() ? QStringLiteral("/dev/shm/mendwise-fuzz")
                                                          : QDir::tempPath() + "/mendwise-fuzz");
    static time_t count = 0;
    static const QString path = folder.filePath(QStringLiteral("settings.conf"));
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    fuzz::require(fd >= 0 && ::write(fd, data, size) == static_cast<ssize_t>(size),
                  "cannot write the settings file");
    const timespec times[2] = {{0, UTIME_OMIT}, {++count, 0}};
    fuzz::require(::futimens(fd, times) == 0 && ::close(fd) == 0, "cannot date the settings file");
    {
        NoLoginItem loginItem;
        AppSettings settings(std::make_unique<QSettings>(path, support::settingsFormat()),
                             loginItem);
        fuzz::require(settings.apiKey().isValidUtf16() && settings.systemPrompt().isValidUtf16(),
                      "settings text that is not valid text");
        // The shortcuts stored beside them, through the same store.
        const auto* store = settings.findChild<QSettings*>();
        fuzz::require(store != nullptr, "settings without their store");
        for (const QString& key : store->allKeys()) {
            if (!key.startsWith(QLatin1StringView(Hotkeys::storageKeyPrefix)))
                continue;
            const auto shortcut = Hotkeys::detail::decodeStoredShortcut(
                Hotkeys::detail::normalizedStoredValue(store->value(key)));
            if (shortcut)
                fuzz::require(Hotkeys::detail::encodeStoredShortcut(*shortcut).has_value(),
                              "a stored shortcut that cannot be written back");
        }
    }
    return 0;
}
