// settings-probe: reads or edits the shared settings in a process of its own, for the tests.
//   settings-probe print               prints every value as one JSON object
//   settings-probe assign-then-crash   assigns two values and is killed right after
#include "service/AppSettings.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <csignal>
#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    AppSettings& settings = AppSettings::shared();
    if (arguments.value(1) == u"print") {
        const QJsonObject values{
            {QStringLiteral("apiKey"), settings.apiKey()},
            {QStringLiteral("systemPrompt"), settings.systemPrompt()},
            {QStringLiteral("selectedModel"), settings.selectedModel().rawValue()},
            {QStringLiteral("launchAtLogin"), settings.launchAtLogin()},
            {QStringLiteral("showMenuBarIcon"), settings.showMenuBarIcon()},
            {QStringLiteral("autoFixOnTrigger"), settings.autoFixOnTrigger()},
        };
        std::fputs(QJsonDocument(values).toJson(QJsonDocument::Compact).constData(), stdout);
        return 0;
    }
    if (arguments.value(1) == u"assign-then-crash") {
        settings.setApiKey(QStringLiteral("sk-ant-before-crash"));
        settings.setSelectedModel(ClaudeModel::sonnet);
        std::raise(SIGKILL); // no destructors, no event loop, no flush at exit
    }
    std::fputs("usage: settings-probe print | assign-then-crash\n", stderr);
    return 2;
}
