// Mendwise: fix or rewrite the selected text of any application with one shortcut.

#include "BuildConfig.h"
#include "app/AppDelegate.h"
#include "app/DisplayCheck.h"
#include "app/HotkeyManager.h"
#include "app/InstanceBus.h"
#include "hotkeys/Hotkeys.h"
#include "platform/freedesktop/AtspiAccessibility.h"
#include "platform/freedesktop/QtScreens.h"
#include "platform/freedesktop/XdgAutostartLoginItem.h"
#include "platform/wayland/PortalGlobalShortcuts.h"
#include "platform/wayland/PortalRemoteDesktop.h"
#include "platform/wayland/UnavailableHotKeys.h"
#include "platform/wayland/VirtualKeyboard.h"
#include "platform/wayland/WaylandKeyboardEvents.h"
#include "platform/wayland/WaylandKeyboardLayout.h"
#include "platform/wayland/WaylandPasteboard.h"
#include "platform/wayland/WaylandWorkspace.h"
#include "platform/x11/AccessibilityBusAddress.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11KeyboardEvents.h"
#include "platform/x11/X11KeyboardLayout.h"
#include "platform/x11/X11Pasteboard.h"
#include "platform/x11/X11Workspace.h"
#include "service/AppSettings.h"
#include "support/Log.h"
#include "ui/TriggerBindingHelp.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
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

// A Wayland display is a socket, named absolutely or under XDG_RUNTIME_DIR.
bool canConnectToWaylandDisplay(const QString& display) {
    const QString path = QDir::isAbsolutePath(display)
                             ? display
                             : qEnvironmentVariable("XDG_RUNTIME_DIR") + u'/' + display;
    return QFileInfo(path).exists();
}

// Whether the desktop lets Mendwise have its shortcut (not so on Wayland without the portal).
bool desktopGivesShortcuts = true;

// Ports for the session's display server.
// Keystrokes into other applications through the best channel the session offers (none on
// some desktops), named once.
std::shared_ptr<platform::wayland::WaylandKeyboardEvents> makeWaylandKeyboardEvents() {
    using namespace platform::wayland;
    std::unique_ptr<KeystrokeChannel> channel;
    if (auto keyboard = std::make_unique<VirtualKeyboard>();
        keyboard->state() == KeystrokeChannel::State::ready) {
        channel = std::move(keyboard);
    } else if (PortalRemoteDesktop::available()) {
        // The desktop asks once; its restore token spares the question at later starts.
        QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
        if (stateHome.isEmpty())
            stateHome = QDir::homePath() + QStringLiteral("/.local/state");
        const QString tokenFile = stateHome + u'/' + QString::fromLatin1(mendwise::build::appId) +
                                  QStringLiteral("/remote-desktop-token");
        channel = std::make_unique<PortalRemoteDesktop>(
            [tokenFile] {
                QFile file(tokenFile);
                return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll().trimmed())
                                                      : QString();
            },
            [tokenFile](const QString& token) {
                QDir().mkpath(QFileInfo(tokenFile).path());
                QSaveFile file(tokenFile);
                if (file.open(QIODevice::WriteOnly)) {
                    file.write(token.toUtf8());
                    file.commit();
                }
            });
    }
    if (channel) {
        support::log(QStringLiteral("[TextSelectionService] ⌨️ Keystrokes through ") +
                     channel->name());
    } else {
        support::log(QStringLiteral(
            "[TextSelectionService] ⚠️ This desktop lets no program type into another: "
            "applications that do not share their text over the accessibility bus cannot be "
            "fixed, and answers stay on the clipboard where they cannot be written back."));
    }
    return std::make_shared<WaylandKeyboardEvents>(std::move(channel));
}

app::Desktop makeDesktop(bool wayland) {
    using namespace platform;
    auto accessibility = std::make_shared<freedesktop::AtspiAccessibility>();
    AppSettings::setSharedLoginItem(std::make_unique<freedesktop::XdgAutostartLoginItem>());
    if (!wayland) {
        // Qt 5 applications find the bus only through the root window.
        accessibility->setBusAddressPublisher(x11::publishAccessibilityBusAddress);
        Hotkeys::setPorts({x11::X11HotKeys::create(), x11::X11KeyboardLayout::create()});
        return {accessibility, std::make_shared<x11::X11Pasteboard>(),
                std::make_shared<x11::X11KeyboardEvents>(), std::make_shared<x11::X11Workspace>(),
                std::make_shared<freedesktop::QtScreens>()};
    }
    // Applications answer extents in their own window's coordinates here.
    accessibility->setScreenCoordinatesKnown(false);
    // The trigger through the desktop's GlobalShortcuts portal where it has one (KDE Plasma,
    // GNOME 48+); elsewhere the user binds `mendwise --trigger` in the desktop's settings.
    std::shared_ptr<HotKeysPort> hotKeys;
    if (wayland::PortalGlobalShortcuts::available()) {
        auto portal = std::make_shared<wayland::PortalGlobalShortcuts>(
            QString::fromLatin1(mendwise::build::appId));
        QObject::connect(portal.get(), &wayland::PortalGlobalShortcuts::bindingChanged,
                         [](const QString& granted, const QString& error) {
                             if (!granted.isEmpty())
                                 support::log(QStringLiteral("[HotkeyManager] The desktop bound "
                                                             "the shortcut to ") +
                                              granted);
                             Hotkeys::setRegistrationError(Hotkeys::triggerMendwise(),
                                                           error.isEmpty() ? std::nullopt
                                                                           : std::optional(error));
                         });
        hotKeys = std::move(portal);
        support::log(QStringLiteral("[HotkeyManager] Global shortcut through the desktop's "
                                    "GlobalShortcuts portal"));
    } else {
        hotKeys = std::make_shared<wayland::UnavailableHotKeys>();
        desktopGivesShortcuts = false;
        support::log(QStringLiteral("[HotkeyManager] ⚠️ ") +
                     ui::triggerBindingHelp(qEnvironmentVariable("XDG_CURRENT_DESKTOP"),
                                            QStringLiteral("mendwise --trigger"))
                         .replace(QStringLiteral("\n\n"), QStringLiteral(" ")));
    }
    Hotkeys::setPorts({std::move(hotKeys), wayland::WaylandKeyboardLayout::create()});
    if (!wayland::WaylandPasteboard::available()) {
        support::log(QStringLiteral("[AppDelegate] ⚠️ wl-clipboard is not installed: Mendwise "
                                    "cannot use the clipboard (install the wl-clipboard "
                                    "package)."));
    }
    auto pasteboard = std::make_shared<wayland::WaylandPasteboard>();
    auto keyboardEvents = makeWaylandKeyboardEvents();
    // Whose copy the clipboard holds, where the compositor lets Mendwise watch it.
    if (pasteboard->watchChanges()) {
        keyboardEvents->setKeystrokeObserver(
            [pasteboard = pasteboard.get()](std::int32_t pid) { pasteboard->noteKeystroke(pid); });
    }
    app::Desktop desktop{
        accessibility, pasteboard, keyboardEvents,
        std::make_shared<wayland::WaylandWorkspace>(accessibility),
        std::make_shared<freedesktop::QtScreens>(freedesktop::QtScreens::Pointer::unknown)};
    desktop.replaceThroughAccessibility = true;
    return desktop;
}

} // namespace

int main(int argc, char** argv) {
    // The command line first: --help, --version and --trigger need no display.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Fixes or rewrites the selected text of any application: select, press Ctrl+Shift+J."));
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Show this help and exit."));
    const QCommandLineOption versionOption(QStringLiteral("version"),
                                           QStringLiteral("Show the version and exit."));
    const QCommandLineOption settingsOption(
        QStringLiteral("settings"),
        QStringLiteral("Open the settings window at start (for desktops without a tray)."));
    const QCommandLineOption triggerOption(
        QStringLiteral("trigger"),
        QStringLiteral("Make the running Mendwise act as on its shortcut: bind this command to a "
                       "key in the desktop's keyboard settings where programs get no global "
                       "shortcuts (sway, some Wayland desktops)."));
    parser.addOptions({helpOption, versionOption, settingsOption, triggerOption});
    // --help, --version and --trigger answer without a display. Anything else waits for the
    // application, which first takes out Qt's own options (-platform, -style...).
    const bool parsed = parser.parse(arguments);
    if (parsed && parser.isSet(helpOption)) {
        const QCoreApplication named(argc, argv); // "Usage: mendwise ..."
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        return 0;
    }
    if (parsed && parser.isSet(versionOption)) {
        std::printf("Mendwise %s\n", mendwise::build::version);
        return 0;
    }
    if (parsed && parser.isSet(triggerOption)) {
        const QCoreApplication client(argc, argv);
        const QString error = app::callRunningInstance(QStringLiteral("Trigger"));
        if (error.isEmpty())
            return 0;
        std::fprintf(stderr, "%s\n", error.toLocal8Bit().constData());
        return 1;
    }

    const app::DisplayCheck display =
        app::checkDisplay([](const char* name) { return qEnvironmentVariable(name); },
                          canConnectToDisplay, canConnectToWaylandDisplay);
    if (display.outcome == app::DisplayCheck::Outcome::unavailable) {
        std::fprintf(stderr, "%s\n", display.message.toLocal8Bit().constData());
        return 1;
    }
    if (!display.message.isEmpty())
        support::log(display.message);
    const bool wayland = display.outcome == app::DisplayCheck::Outcome::wayland;
    qputenv("QT_QPA_PLATFORM", wayland ? "wayland" : "xcb");
    // The compositor names our windows by this id (and matches it to the installed desktop
    // file).
    QGuiApplication::setDesktopFileName(QString::fromLatin1(mendwise::build::appId));

    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Mendwise"));
    QApplication::setApplicationName(QStringLiteral("Mendwise"));
    QApplication::setApplicationVersion(QString::fromLatin1(mendwise::build::version));
    QApplication::setQuitOnLastWindowClosed(false);
    if (!parser.parse(QApplication::arguments())) {
        std::fprintf(stderr, "mendwise: %s\nTry 'mendwise --help'.\n",
                     parser.errorText().toLocal8Bit().constData());
        return 2;
    }

    // One Mendwise per session: a second start shows the running one's settings.
    app::AppDelegate* running = nullptr;
    app::InstanceService instance({[&running] {
                                       if (running)
                                           running->trigger();
                                   },
                                   [&running] {
                                       if (running)
                                           running->openSettings();
                                   }});
    if (instance.claim() == app::InstanceService::Claim::alreadyRunning) {
        const QString error = app::callRunningInstance(QStringLiteral("OpenSettings"));
        if (!error.isEmpty()) {
            std::fprintf(stderr, "%s\n", error.toLocal8Bit().constData());
            return 1;
        }
        std::printf("Mendwise is already running: its settings window is open.\n");
        return 0;
    }
    quitOnTerminationSignals(application);

    app::Desktop desktop = makeDesktop(wayland);
    const auto waylandKeys =
        std::dynamic_pointer_cast<platform::wayland::WaylandKeyboardEvents>(desktop.keyboardEvents);
    app::AppDelegate delegate(
        std::move(desktop), AppSettings::shared(),
        {QApplication::applicationFilePath(), QUrl(QString::fromUtf8(apiEndpoint))});
    running = &delegate;
    QObject::connect(&application, &QCoreApplication::aboutToQuit, &delegate,
                     &app::AppDelegate::applicationWillTerminate);
    delegate.applicationDidFinishLaunching();
    // Keys typed while the panel has the focus would reach the panel: it steps aside for them.
    if (waylandKeys) {
        const QPointer<app::AppDelegate> self(&delegate);
        if (auto* portal =
                dynamic_cast<platform::wayland::PortalRemoteDesktop*>(waylandKeys->channel())) {
            using State = platform::wayland::KeystrokeChannel::State;
            portal->setStateObserver([self, portal](State state) {
                if (!self)
                    return;
                const bool allowed = state == State::ready;
                self->setKeystrokeProblem(
                    allowed ? QString() : platform::wayland::PortalRemoteDesktop::notAllowedText,
                    [portal] { portal->start(); });
                if (state == State::refused)
                    support::log(QStringLiteral("[TextSelectionService] ⚠️ The desktop did not "
                                                "let Mendwise type into other applications"));
            });
            portal->start();
        }
        waylandKeys->setFocusHandOff({[self] { app::AppDelegate::stepAsideForKeystroke(self); },
                                      [self] { app::AppDelegate::comeBackAfterKeystroke(self); }});
    }
    if (!desktopGivesShortcuts) {
        Hotkeys::setRegistrationError(
            Hotkeys::triggerMendwise(),
            QStringLiteral("This desktop gives no shortcuts: bind “mendwise --trigger” in "
                           "its keyboard settings"));
    }
    // Without a tray there is no icon to open the settings from: --settings opens them, and so
    // does a start without a tray and without an API key, so that first use can go ahead.
    if (parser.isSet(settingsOption) ||
        (!QSystemTrayIcon::isSystemTrayAvailable() && AppSettings::shared().apiKey().isEmpty())) {
        QMetaObject::invokeMethod(&delegate, &app::AppDelegate::openSettings, Qt::QueuedConnection);
    }
    const int status = QApplication::exec();
    running = nullptr;
    return status;
}
