// Types chords on a Wayland desktop through a virtual keyboard of a chosen layout, or holds
// such a keyboard for a test session (a seat without a keyboard focuses no window).
// Usage: type-keys [--layout NAMES] [--hold] [CHORD...]   CHORD: ctrl+shift+j, Return, a
#include "platform/wayland/VirtualKeyboard.h"
#include "platform/wayland/XkbKeymap.h"

#include <QString>
#include <QStringList>
#include <chrono>
#include <cstdio>
#include <thread>
#include <xkbcommon/xkbcommon.h>

using platform::wayland::KeystrokeChannel;
using platform::wayland::VirtualKeyboard;
using platform::wayland::XkbKeymap;

int main(int argc, char** argv) {
    QByteArray layout = "us";
    bool hold = false;
    QStringList chords;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (arg == QLatin1String("--layout") && i + 1 < argc)
            layout = argv[++i];
        else if (arg == QLatin1String("--hold"))
            hold = true;
        else
            chords << arg;
    }
    const auto keymap = XkbKeymap::fromNames(layout.constData());
    if (!keymap) {
        std::fprintf(stderr, "type-keys: no keymap for layout %s\n", layout.constData());
        return 2;
    }
    VirtualKeyboard keyboard(keymap->text());
    if (keyboard.state() != KeystrokeChannel::State::ready) {
        std::fprintf(stderr, "type-keys: the compositor offers no virtual keyboard\n");
        return 1;
    }
    for (const QString& chord : chords) {
        std::vector<std::uint32_t> codes;
        for (const QString& part : chord.split(u'+')) {
            const QString name = part == QLatin1String("ctrl")    ? QStringLiteral("Control_L")
                                 : part == QLatin1String("shift") ? QStringLiteral("Shift_L")
                                 : part == QLatin1String("alt")   ? QStringLiteral("Alt_L")
                                 : part == QLatin1String("super") ? QStringLiteral("Super_L")
                                                                  : part;
            const xkb_keysym_t sym =
                xkb_keysym_from_name(name.toUtf8().constData(), XKB_KEYSYM_NO_FLAGS);
            const auto place = keymap->locate(sym);
            if (sym == XKB_KEY_NoSymbol || !place) {
                std::fprintf(stderr, "type-keys: no key types %s\n", qPrintable(part));
                return 2;
            }
            keyboard.chooseLayout(place->layout);
            codes.push_back(place->evdevCode);
        }
        for (const std::uint32_t code : codes)
            keyboard.sendKey(code, true);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        for (auto code = codes.rbegin(); code != codes.rend(); ++code)
            keyboard.sendKey(*code, false);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    while (hold)
        std::this_thread::sleep_for(std::chrono::hours(1));
    return 0;
}
