#pragma once

#include <QElapsedTimer>
#include <QRect>
#include <QWidget>

namespace app {

// The small window under the tray icon. It closes when the user clicks anywhere else (a Qt
// popup); a click on the tray icon itself while it is open closes it too, instead of opening
// it again at once.
class Popover : public QWidget {
    Q_OBJECT

public:
    static constexpr int width = 280;
    static constexpr int height = 200;

    explicit Popover(QWidget* content);

    // Shows the popover hanging below `anchor` (the tray icon's rectangle, in Qt's screen
    // coordinates), kept on the anchor's screen; near the mouse when the anchor is unknown.
    void showBelow(const QRect& anchor);
    // Whether the popover closed so recently that the click being handled is the one that
    // closed it.
    [[nodiscard]] bool justClosed() const;

protected:
    void hideEvent(QHideEvent* event) override;

private:
    QElapsedTimer closedAt_;
};

} // namespace app
