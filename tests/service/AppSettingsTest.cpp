#include "service/AppSettings.h"

#include "platform/sim/SimLoginItem.h"
#include "support/Log.h"
#include "support/NotificationCenter.h"
#include "support/SettingsFormat.h"
#include "tests/common/TestUtil.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

class AppSettingsTest : public ::testing::Test {
protected:
    [[nodiscard]] QString path() const {
        return dir_.filePath(QStringLiteral("Mendwise-%1.conf").arg(file_));
    }
    // Later loads use a file of their own: QSettings keeps what it read of a path in a
    // process-wide cache, so rewriting one file quickly could be missed.
    void useNewFile() { ++file_; }

    std::unique_ptr<AppSettings> load() {
        return std::make_unique<AppSettings>(
            std::make_unique<QSettings>(path(), support::settingsFormat()), loginItem_);
    }

    void writeStore(const QByteArray& ini) {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(ini);
    }

    [[nodiscard]] QByteArray storeBytes() const {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // The value as written in the file under `key` (top level), or nothing.
    [[nodiscard]] std::optional<QByteArray> storedText(const QString& key) const {
        const QByteArray prefix = key.toUtf8() + '=';
        bool topLevel = true;
        for (const QByteArray& line : storeBytes().split('\n')) {
            if (line.startsWith('['))
                topLevel = line == "[General]";
            else if (topLevel && line.startsWith(prefix))
                return line.mid(prefix.size());
        }
        return std::nullopt;
    }

    QTemporaryDir dir_;
    int file_ = 0;
    platform::sim::SimLoginItem loginItem_;
};

// One record for each ignored key, naming it.
void expectOneReportPerKey(const support::LogCapture& log, const QStringList& keys) {
    ASSERT_EQ(log.records().size(), keys.size()) << log.records().join(u'\n').toStdString();
    for (const QString& key : keys)
        EXPECT_EQ(log.records().filter(u' ' + key + u' ').size(), 1) << key.toStdString();
}

} // namespace

// Loading reads: it writes nothing, not even to a fresh store, and leaves the login item alone.
TEST_F(AppSettingsTest, ValuesLoadAsStoredOrAsDefaultsAndLoadingWritesNothing) {
    const QByteArray stored = "[General]\n"
                              "anthropic_api_key=\"  sk-ant-spaced  \"\n"
                              "system_prompt=\n"
                              "selected_model=claude-opus-4-6\n"
                              "launch_at_login=true\n"
                              "show_menu_bar_icon=false\n"
                              "auto_fix_on_trigger=true\n";
    for (const bool fresh : {true, false}) {
        useNewFile();
        if (!fresh)
            writeStore(stored);
        const QDateTime modified = QFileInfo(path()).lastModified();
        support::LogCapture log;
        {
            const auto settings = load();
            EXPECT_EQ(settings->apiKey(), fresh ? QString() : QStringLiteral("  sk-ant-spaced  "));
            // Stored empty is not the default.
            EXPECT_EQ(settings->systemPrompt(),
                      fresh ? AppSettings::defaultSystemPrompt : QString());
            EXPECT_EQ(settings->selectedModel(), fresh ? ClaudeModel::haiku : ClaudeModel::opus);
            EXPECT_EQ(settings->launchAtLogin(), !fresh);
            EXPECT_EQ(settings->showMenuBarIcon(), fresh);
            EXPECT_EQ(settings->autoFixOnTrigger(), !fresh);
            testutil::processEventsFor(std::chrono::milliseconds(50));
        }
        EXPECT_EQ(storeBytes(), fresh ? QByteArray() : stored);
        EXPECT_EQ(QFileInfo::exists(path()), !fresh);
        EXPECT_EQ(QFileInfo(path()).lastModified(), modified);
        EXPECT_EQ(loginItem_.registerCalls() + loginItem_.unregisterCalls(), 0);
        EXPECT_TRUE(log.records().isEmpty());
    }
}

TEST_F(AppSettingsTest, UnknownModelFallsBackToHaikuAndStaysInTheStore) {
    // Only the exact identifier names a model: no other case, no spaces around it.
    for (const QByteArray stored :
         {"claude-3-haiku-20240307", "Claude-sonnet-4-6", "opus", "\"claude-opus-4-6 \""}) {
        useNewFile();
        writeStore("[General]\nselected_model=" + stored + "\nsystem_prompt=kept\n");
        const auto settings = load();
        EXPECT_EQ(settings->selectedModel(), ClaudeModel::haiku) << stored.constData();
        settings->setSystemPrompt(QStringLiteral("edited")); // a write of another key
        // Rewritten with the file, as the text it read: quoted, as every string is written.
        EXPECT_EQ(storedText(AppSettings::modelKey),
                  stored.startsWith('"') ? stored : '"' + stored + '"');
    }
}

// The INI store keeps no types: a Boolean is the bare word true or false, as QSettings writes
// one. Anything else stored under a switch is not a Boolean and takes the switch's fallback.
TEST_F(AppSettingsTest, MalformedStoredValuesTakeTheirFallbacks) {
    const QByteArray notBooleans[] = {
        "yes", "1", "0", "False", "TRUE", "", "\"\"", "true, false", "@Variant(garbage", "no"};
    for (const QByteArray& value : notBooleans) {
        useNewFile();
        writeStore("[General]\nshow_menu_bar_icon=" + value + "\nlaunch_at_login=" + value +
                   "\nauto_fix_on_trigger=" + value + "\n");
        support::LogCapture log;
        const auto settings = load();
        expectOneReportPerKey(log, {AppSettings::showMenuBarIconKey, AppSettings::launchAtLoginKey,
                                    AppSettings::autoFixOnTriggerKey});
        EXPECT_TRUE(settings->showMenuBarIcon()) << value.constData();
        EXPECT_FALSE(settings->launchAtLogin()) << value.constData();
        EXPECT_FALSE(settings->autoFixOnTrigger()) << value.constData();
    }
    // A list (an unquoted comma) is no string: the fallbacks apply.
    useNewFile();
    writeStore("[General]\nanthropic_api_key=sk-ant, other\nsystem_prompt=Fix this, please\n"
               "selected_model=claude-opus-4-6, claude-haiku-4-5\n");
    support::LogCapture log;
    const auto settings = load();
    expectOneReportPerKey(
        log, {AppSettings::apiKeyKey, AppSettings::systemPromptKey, AppSettings::modelKey});
    EXPECT_FALSE(log.records().join(u'\n').contains(u"sk-ant")) << "the key is never printed";
    EXPECT_EQ(settings->apiKey(), QString());
    EXPECT_EQ(settings->systemPrompt(), AppSettings::defaultSystemPrompt);
    EXPECT_EQ(settings->selectedModel(), ClaudeModel::haiku);
}

TEST_F(AppSettingsTest, EveryAssignmentIsAnnouncedBeforeAndWrittenAtOnce) {
    const struct {
        const char* name; // of the property
        QVariant value;
        QString key;
        QByteArray stored;
    } cases[] = {
        {"apiKey", QStringLiteral(" sk-ant-new "), AppSettings::apiKeyKey, "\" sk-ant-new \""},
        {"systemPrompt", QStringLiteral("Be brief"), AppSettings::systemPromptKey, "\"Be brief\""},
        {"selectedModel", QVariant::fromValue(ClaudeModel(ClaudeModel::sonnet)),
         AppSettings::modelKey, "\"claude-sonnet-4-6\""},
        {"launchAtLogin", true, AppSettings::launchAtLoginKey, "true"},
        {"showMenuBarIcon", false, AppSettings::showMenuBarIconKey, "false"},
        {"autoFixOnTrigger", true, AppSettings::autoFixOnTriggerKey, "true"},
    };
    // A property's value in words.
    const auto read = [](const AppSettings& settings, const char* name) {
        const QVariant value = settings.property(name);
        return value.metaType() == QMetaType::fromType<ClaudeModel>()
                   ? value.value<ClaudeModel>().rawValue()
                   : value.toString();
    };
    const auto settings = load();
    int posted = 0;
    const support::Observation observation =
        support::NotificationCenter::defaultCenter().addObserver(
            QStringLiteral("menuBarIconVisibilityChanged"),
            [&](const support::Notification&) { ++posted; });
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QString before = read(*settings, c.name);
        const int notified = posted;
        const int loginItemCalls = loginItem_.registerCalls() + loginItem_.unregisterCalls();
        QStringList seen; // what observers saw, in order
        const auto willChange =
            QObject::connect(settings.get(), &AppSettings::objectWillChange,
                             [&] { seen << u"will:" + read(*settings, c.name); });
        const auto didChange = QObject::connect(settings.get(), &AppSettings::changed, [&] {
            seen << u"did:" + read(*settings, c.name) +
                        (storedText(c.key) == c.stored ? u":written" : u":unwritten");
        });
        ASSERT_TRUE(settings->setProperty(c.name, c.value));
        // The same value again, over a store that is gone: announced and written all the same.
        ASSERT_TRUE(QFile::remove(path()));
        ASSERT_TRUE(settings->setProperty(c.name, c.value));
        QObject::disconnect(willChange);
        QObject::disconnect(didChange);
        const QString after = read(*settings, c.name);
        EXPECT_EQ(seen, (QStringList{u"will:" + before, u"did:" + after + u":written",
                                     u"will:" + after, u"did:" + after + u":written"}));
        EXPECT_NE(after, before);
        // Only the tray icon's switch is posted; only the login switch reaches the login item.
        EXPECT_EQ(posted - notified, c.key == AppSettings::showMenuBarIconKey ? 2 : 0);
        if (c.key != AppSettings::launchAtLoginKey) {
            EXPECT_EQ(loginItem_.registerCalls() + loginItem_.unregisterCalls(), loginItemCalls);
        }
        EXPECT_EQ(storedText(c.key), c.stored); // on disk, without waiting for anything
        EXPECT_EQ(QFile::permissions(path()), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                  QFileDevice::ReadUser | QFileDevice::WriteUser)
            << "the store holds the API key";
    }
}

TEST_F(AppSettingsTest, LaunchAtLoginFollowsTheLoginItemAndKeepsItsValueWhenThatFails) {
    const auto settings = load();
    {
        support::LogCapture log;
        settings->setLaunchAtLogin(true);
        EXPECT_TRUE(loginItem_.isRegistered());
        settings->setLaunchAtLogin(false);
        EXPECT_FALSE(loginItem_.isRegistered());
        EXPECT_EQ(loginItem_.registerCalls(), 1);
        EXPECT_EQ(loginItem_.unregisterCalls(), 1);
        EXPECT_TRUE(log.records().isEmpty());
    }

    loginItem_.failWith(QStringLiteral("The operation couldn’t be completed."));
    support::LogCapture log;
    settings->setLaunchAtLogin(true);
    EXPECT_EQ(log.records(),
              QStringList{QStringLiteral(
                  "Failed to update login item: The operation couldn’t be completed.")});
    EXPECT_TRUE(settings->launchAtLogin());
    EXPECT_EQ(storedText(AppSettings::launchAtLoginKey), QByteArray("true"));
    EXPECT_FALSE(loginItem_.isRegistered());
    EXPECT_EQ(loginItem_.registerCalls(), 2); // no retry
}

TEST_F(AppSettingsTest, BackgroundReadsNeverSeeATornValue) {
    const auto settings = load();
    const QString keys[] = {QStringLiteral("sk-ant-first-key"), QStringLiteral("sk-ant-second")};
    const QString prompts[] = {QStringLiteral("Prompt one"), QStringLiteral("Prompt two, longer")};
    settings->setApiKey(keys[0]);
    settings->setSystemPrompt(prompts[0]);
    std::atomic<bool> done{false};
    std::atomic<int> reads{0};
    std::atomic<int> unexpected{0};
    std::thread reader([&] {
        while (!done.load()) {
            const QString key = settings->apiKey();
            const QString prompt = settings->systemPrompt();
            const ClaudeModel model = settings->selectedModel();
            if ((key != keys[0] && key != keys[1]) ||
                (prompt != prompts[0] && prompt != prompts[1]) ||
                (model != ClaudeModel::haiku && model != ClaudeModel::opus))
                ++unexpected;
            ++reads;
        }
    });
    for (int i = 0; i < 60; ++i) {
        settings->setApiKey(keys[i % 2]);
        settings->setSystemPrompt(prompts[i % 2]);
        settings->setSelectedModel(i % 2 ? ClaudeModel::opus : ClaudeModel::haiku);
    }
    done = true;
    reader.join();
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(unexpected.load(), 0);
}

// The shared instance works over the user's store (here the test's own configuration folder):
// what it assigns is in the file at once, for another process or after a crash.
TEST(AppSettingsShared, OneInstanceForEveryThreadOwnedByTheMainThread) {
    std::vector<std::thread> threads;
    std::vector<AppSettings*> seen(8, nullptr);
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&seen, i] { seen[i] = &AppSettings::shared(); });
    for (auto& thread : threads)
        thread.join();
    for (AppSettings* instance : seen)
        EXPECT_EQ(instance, &AppSettings::shared());
    EXPECT_EQ(AppSettings::shared().thread(), QCoreApplication::instance()->thread());
    EXPECT_FALSE(AppSettings::setSharedLoginItem(std::make_unique<platform::sim::SimLoginItem>()));
}

TEST(AppSettingsShared, AssignmentsAreInTheUsersFileAtOnceAndReadBackTheSame) {
    AppSettings& settings = AppSettings::shared();
    // Commas, quotes, line breaks and a typed-looking word stay one string each.
    settings.setApiKey(QStringLiteral("  sk-ant-from, parent  "));
    const QString prompt = QStringLiteral("Line one, @Variant(x)\nline \"two\"");
    settings.setSystemPrompt(prompt);
    settings.setSelectedModel(ClaudeModel::opus);
    settings.setShowMenuBarIcon(false);
    settings.setAutoFixOnTrigger(true);

    // Read from a copy, as a new process would: QSettings answers a path it knows from memory.
    const QString file = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                         QStringLiteral("/Mendwise/Mendwise.conf");
    const QString copy = file + QStringLiteral(".copy");
    ASSERT_TRUE(QFile::copy(file, copy)) << file.toStdString();
    platform::sim::SimLoginItem loginItem;
    const AppSettings read(std::make_unique<QSettings>(copy, support::settingsFormat()), loginItem);
    EXPECT_EQ(read.apiKey(), QStringLiteral("  sk-ant-from, parent  "));
    EXPECT_EQ(read.systemPrompt(), prompt);
    EXPECT_EQ(read.selectedModel(), ClaudeModel::opus);
    EXPECT_FALSE(read.showMenuBarIcon());
    EXPECT_TRUE(read.autoFixOnTrigger());
}
