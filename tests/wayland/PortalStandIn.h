#pragma once

// A stand-in of the desktop portal (python3-dbusmock with one of the templates here) on the
// private session bus the test program runs on: started before each test, ended after it.
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

namespace portaltest {

inline const QString portalName = QStringLiteral("org.freedesktop.portal.Desktop");

// Waits until the portal is on the bus (or gone from it); whether that came.
inline bool portalOnBus(bool expected) {
    return testutil::waitUntil([expected] {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(portalName) ==
               expected;
    });
}

class PortalStandInTest : public ::testing::Test {
protected:
    explicit PortalStandInTest(const char* dbusmockTemplate)
        : portal_(QStringLiteral("/usr/bin/python3"),
                  {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("-l"),
                   QStringLiteral("/dev/null"), QStringLiteral("--template"),
                   QString::fromUtf8(dbusmockTemplate)}) {}

    void SetUp() override {
        ASSERT_TRUE(portal_.started());
        ASSERT_TRUE(portalOnBus(true)) << "the portal stand-in did not start";
    }
    void TearDown() override {
        portal_.finish({}, std::chrono::milliseconds(1));
        portalOnBus(false);
    }

    // Calls a method of the stand-in's own control interface.
    static QDBusMessage mock(const QString& method, const QVariantList& arguments = {}) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            portalName, QStringLiteral("/org/freedesktop/portal/desktop"),
            QStringLiteral("org.freedesktop.DBus.Mock"), method);
        call.setArguments(arguments);
        QDBusMessage reply = QDBusConnection::sessionBus().call(call);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return reply;
    }

    // The array of structures a method of the stand-in's control interface answers.
    template <typename... Fields>
    static std::vector<std::tuple<Fields...>> mockStructs(const QString& method) {
        const auto array = mock(method).arguments().value(0).value<QDBusArgument>();
        std::vector<std::tuple<Fields...>> rows;
        array.beginArray();
        while (!array.atEnd()) {
            std::tuple<Fields...> row;
            array.beginStructure();
            std::apply([&array](auto&... field) { (array >> ... >> field); }, row);
            array.endStructure();
            rows.push_back(row);
        }
        array.endArray();
        return rows;
    }

private:
    testutil::ChildProcess portal_;
};

} // namespace portaltest
