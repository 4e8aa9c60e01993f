#pragma once

#include "hotkeys/Hotkeys.h"
#include "hotkeys/Testing.h"
#include "platform/sim/SimHotKeys.h"
#include "platform/sim/SimKeyboardLayout.h"
#include "support/NotificationCenter.h"

#include <QSettings>
#include <gtest/gtest.h>

// Every test starts from an empty defaults store and fresh subsystem state over a simulated
// desktop.
class HotkeysTest : public ::testing::Test {
public:
    static QSettings& store() {
        static QSettings settings(QStringLiteral("Mendwise"), QStringLiteral("Mendwise"));
        return settings;
    }

protected:
    void SetUp() override {
        store().clear();
        Hotkeys::resetStateForTesting({hotKeys, layout});
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

    std::shared_ptr<platform::sim::SimHotKeys> hotKeys =
        std::make_shared<platform::sim::SimHotKeys>();
    std::shared_ptr<platform::sim::SimKeyboardLayout> layout =
        std::make_shared<platform::sim::SimKeyboardLayout>();
    QList<Hotkeys::Name> changed;
    support::Observation changes;
};
