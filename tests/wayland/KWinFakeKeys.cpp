// Types keys into KWin through its fake-input protocol, the way a remote keyboard does, so that
// KWin's own shortcut handling sees a real press and release. KWin offers the protocol only to
// programs whose desktop file lists it (kde-portal-session.sh writes one for this program).
// Usage: kwin-fake-keys +CODE|-CODE ...   (evdev key codes; + presses, - releases)
#include "fake-input-client-protocol.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <wayland-client.h>

namespace {

org_kde_kwin_fake_input* fakeInput = nullptr;

void announce(void*, wl_registry* registry, std::uint32_t name, const char* interface,
              std::uint32_t version) {
    // keyboard_key arrived in version 4.
    if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 && version >= 4)
        fakeInput = static_cast<org_kde_kwin_fake_input*>(
            wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, 4));
}

void withdraw(void*, wl_registry*, std::uint32_t) {}

const wl_registry_listener registryListener{announce, withdraw};

} // namespace

int main(int argc, char** argv) {
    wl_display* display = wl_display_connect(nullptr);
    if (display == nullptr) {
        std::fprintf(stderr, "kwin-fake-keys: cannot connect to the Wayland display\n");
        return 1;
    }
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registryListener, nullptr);
    wl_display_roundtrip(display);
    if (fakeInput == nullptr) {
        std::fprintf(stderr, "kwin-fake-keys: the compositor offers no fake input (version 4)\n");
        return 1;
    }
    org_kde_kwin_fake_input_authenticate(fakeInput, "Mendwise tests", "Type test shortcuts");
    for (int i = 1; i < argc; ++i) {
        const std::string key = argv[i];
        char* end = nullptr;
        const long code = std::strtol(key.c_str() + 1, &end, 10);
        if (key.size() < 2 || (key[0] != '+' && key[0] != '-') || *end != '\0' || code <= 0) {
            std::fprintf(stderr, "kwin-fake-keys: not +CODE or -CODE: %s\n", key.c_str());
            return 2;
        }
        org_kde_kwin_fake_input_keyboard_key(fakeInput, static_cast<std::uint32_t>(code),
                                             key[0] == '+' ? 1 : 0);
        // One key at a time, as a hand would, so that KWin sees them in order.
        wl_display_roundtrip(display);
    }
    org_kde_kwin_fake_input_destroy(fakeInput);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    return 0;
}
