#pragma once

#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class QLabel;

namespace support {
class Observation;
}
namespace ui {
class StatusDot;
}

namespace app {

// The content of the popover under the menu-bar (tray) icon: the program's name with a
// one-line usage hint, the status with a short instruction, and two commands. The status reads
// "Ready" with a green dot, unless the trigger shortcut could not be registered: then it says
// why, in red, until a registration succeeds. Every other text is fixed.
class MenuBarView : public QWidget {
    Q_OBJECT
public:
    static constexpr int contentWidth = 280;
    static constexpr int contentHeight = 200;

    struct Commands {
        // "Settings...": close the popover and bring the settings window forward.
        std::function<void()> openSettings;
        // "Quit Mendwise": end the application the normal way.
        std::function<void()> quit;
        // Why the trigger shortcut does not work, or none while it does. Read at once and
        // again whenever a hot-key registration changes.
        std::function<std::optional<QString>()> triggerProblem;
    };

    explicit MenuBarView(Commands commands, QWidget* parent = nullptr);
    ~MenuBarView() override;

    // The displayed text for one of the view's text keys. The keys are the texts as written
    // for the original keyboard ("Cmd+Shift+J to fix typos"); here the shortcut is spelled
    // with Ctrl, the key that plays Command's role on this desktop.
    static QString localized(const QString& key);

private:
    void refreshStatus();

    Commands commands_;
    ui::StatusDot* statusDot_ = nullptr;
    QLabel* statusText_ = nullptr;
    std::unique_ptr<support::Observation> registrationObserver_;
};

} // namespace app
