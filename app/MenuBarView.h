#pragma once

#include <QWidget>
#include <functional>

namespace app {

// The content of the popover under the menu-bar (tray) icon: the program's name with a
// one-line usage hint, a fixed "Ready" status with a short instruction, and two commands. It
// holds no state and never changes; the texts are fixed whatever the settings hold.
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
    };

    explicit MenuBarView(Commands commands, QWidget* parent = nullptr);

    // The displayed text for one of the view's text keys. The keys are the texts as written
    // for the original keyboard ("Cmd+Shift+J to fix typos"); here the shortcut is spelled
    // with Ctrl, the key that plays Command's role on this desktop.
    static QString localized(const QString& key);

private:
    Commands commands_;
};

} // namespace app
