#pragma once

#include "hotkeys/Hotkeys.h"
#include "hotkeys/Testing.h"
#include "platform/sim/SimHotKeys.h"
#include "platform/sim/SimKeyboardLayout.h"
#include "support/NotificationCenter.h"

#include <QSettings>
#include <gtest/gtest.h>

// Every test starts from an empty defaults store and fresh subsystem state, over simulated hot
// keys and layout or over a desktop's own (made by their create(), which fails off that desktop).
template <class HotKeys = platform::sim::SimHotKeys,
          class Layout = platform::sim::SimKeyboardLayout>
class HotkeysOver : public ::testing::Test {
public:
    static QSettings& store() {
        static QSettings settings(QStringLiteral("Mendwise"), QStringLiteral("Mendwise"));
        return settings;
    }

protected:
    void SetUp() override {
        ASSERT_TRUE(hotKeys && layout) << "not on the desktop these hot keys need";
        store().clear();
        relaunch();
        changes = support::NotificationCenter::defaultCenter().addObserver(
            QString::fromLatin1(Hotkeys::shortcutByNameDidChange),
            [this](const support::Notification& notification) {
                changed.append(
                    notification.userInfo.value(QStringLiteral("name")).value<Hotkeys::Name>());
            });
    }

    void TearDown() override {
        changes.reset();
        Hotkeys::resetStateForTesting({});
        store().clear();
    }

    // Restarts the subsystem over the same store and desktop, as a new launch would.
    void relaunch() { Hotkeys::resetStateForTesting({hotKeys, layout}); }

    template <class Port> static std::shared_ptr<Port> make() {
        if constexpr (requires { Port::create(); })
            return Port::create();
        else
            return std::make_shared<Port>();
    }

    std::shared_ptr<HotKeys> hotKeys = make<HotKeys>();
    std::shared_ptr<Layout> layout = make<Layout>();
    QList<Hotkeys::Name> changed;
    support::Observation changes;
};

using HotkeysTest = HotkeysOver<>;
