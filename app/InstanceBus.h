#pragma once

#include <QObject>
#include <QString>
#include <functional>

// One Mendwise per session, reachable over the session bus under the application id. A second
// start asks the running one to open its settings and exits; `mendwise --trigger` asks it to
// act as on a release of the trigger shortcut (where the desktop binds that command to a key).
namespace app {

class InstanceService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.mendwise.Mendwise")

public:
    struct Actions {
        std::function<void()> trigger;
        std::function<void()> openSettings;
    };
    explicit InstanceService(Actions actions, QObject* parent = nullptr);

    enum class Claim { owned, alreadyRunning, noBus };
    // Puts this object on the session bus and takes the application id's name.
    Claim claim();

public Q_SLOTS:
    void Trigger();      // NOLINT(readability-identifier-naming): D-Bus method names
    void OpenSettings(); // NOLINT(readability-identifier-naming)

private:
    Actions actions_;
};

// Calls `method` of the running instance (starting it through D-Bus activation where Mendwise
// is installed). Empty on success, otherwise a message for the user.
QString callRunningInstance(const QString& method);

} // namespace app
