// Mendwise: fix or rewrite the selected text of any application with one shortcut.

#include "BuildConfig.h"
#include "app/AppDelegate.h"
#include "app/DisplayCheck.h"
#include "hotkeys/Hotkeys.h"
#include "platform/freedesktop/AtspiAccessibility.h"
#include "platform/freedesktop/XdgAutostartLoginItem.h"
#include "platform/x11/AccessibilityBusAddress.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11KeyboardEvents.h"
#include "platform/x11/X11KeyboardLayout.h"
#include "platform/x11/X11Pasteboard.h"
#include "platform/x11/X11Screens.h"
#include "platform/x11/X11Workspace.h"
#include "service/AppSettings.h"
#include "support/Log.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QSocketNotifier>
#include <QSystemTrayIcon>
#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace {

// The end-to-end tests build this same program against a local Messages API server.
#ifdef MENDWISE_TEST_API_ENDPOINT
constexpr const char* apiEndpoint = MENDWISE_TEST_API_ENDPOINT;
#else
constexpr const char* apiEndpoint = mendwise::build::apiEndpoint;
#endif

bool canConnectToDisplay(const QString& display) {
    const QByteArray name = display.toLocal8Bit();
    xcb_connection_t* connection = xcb_connect(name.constData(), nullptr);
    const bool ok = connection && xcb_connection_has_error(connection) == 0;
    if (connection)
        xcb_disconnect(connection);
    return ok;
}

// SIGINT and SIGTERM end the application the normal way, so the shortcut is released and the
// keyboard is never left grabbed.
int signalPipe[2] = {-1, -1};

void onTerminationSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

void quitOnTerminationSignals(QApplication& application) {
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &application);
    QObject::connect(notifier, &QSocketNotifier::activated, &application, [] {
        char byte = 0;
        [[maybe_unused]] const ssize_t got = ::read(signalPipe[0], &byte, 1);
        QApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    const app::DisplayCheck display = app::checkDisplay(
        [](const char* name) { return qEnvironmentVariable(name); }, canConnectToDisplay);
    if (display.outcome == app::DisplayCheck::Outcome::unavailable) {
        std::fprintf(stderr, "%s\n", display.message.toLocal8Bit().constData());
        return 1;
    }
    if (!display.message.isEmpty())
        support::log(display.message);
    // Everything Mendwise does on the desktop goes through X11, also under XWayland.
    qputenv("QT_QPA_PLATFORM", "xcb");

    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Mendwise"));
    QApplication::setApplicationName(QStringLiteral("Mendwise"));
    QApplication::setQuitOnLastWindowClosed(false);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Fixes or rewrites the selected text of any application: select, press Ctrl+Shift+J."));
    parser.addHelpOption();
    const QCommandLineOption settingsOption(
        QStringLiteral("settings"),
        QStringLiteral("Open the settings window at start (for desktops without a tray)."));
    parser.addOption(settingsOption);
    parser.process(application);
    quitOnTerminationSignals(application);

    using namespace platform::x11;
    using platform::freedesktop::AtspiAccessibility;
    AppSettings::setSharedLoginItem(
        std::make_unique<platform::freedesktop::XdgAutostartLoginItem>());
    Hotkeys::setPorts({X11HotKeys::create(), X11KeyboardLayout::create()});

    auto accessibility = std::make_shared<AtspiAccessibility>();
    accessibility->setBusAddressPublisher(publishAccessibilityBusAddress);
    app::Desktop desktop{std::move(accessibility), std::make_shared<X11Pasteboard>(),
                         std::make_shared<X11KeyboardEvents>(), std::make_shared<X11Workspace>(),
                         std::make_shared<X11Screens>()};
    app::AppDelegate delegate(
        std::move(desktop), AppSettings::shared(),
        {QApplication::applicationFilePath(), QUrl(QString::fromUtf8(apiEndpoint))});
    QObject::connect(&application, &QCoreApplication::aboutToQuit, &delegate,
                     &app::AppDelegate::applicationWillTerminate);
    delegate.applicationDidFinishLaunching();
    // Without a tray there is no icon to open the settings from: --settings opens them, and so
    // does a start without a tray and without an API key, so that first use can go ahead.
    if (parser.isSet(settingsOption) ||
        (!QSystemTrayIcon::isSystemTrayAvailable() && AppSettings::shared().apiKey().isEmpty())) {
        QMetaObject::invokeMethod(&delegate, &app::AppDelegate::openSettings, Qt::QueuedConnection);
    }
    return QApplication::exec();
}
