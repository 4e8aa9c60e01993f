#include "support/Log.h"

#include "tests/common/TestUtil.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using support::LogCapture;

TEST(Log, RecordsFromManyThreadsStayWhole) {
    LogCapture capture;
    constexpr int threads = 8;
    constexpr int perThread = 200;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([t] {
            for (int i = 0; i < perThread; ++i)
                support::log(
                    QStringLiteral("thread %1 record %2\n  second line %1/%2").arg(t).arg(i));
        });
    }
    for (auto& worker : workers)
        worker.join();

    const QStringList records = capture.records();
    ASSERT_EQ(records.size(), threads * perThread);
    for (const QString& record : records) {
        const QStringList lines = record.split(u'\n');
        ASSERT_EQ(lines.size(), 2) << record.toStdString();
        const QString id = lines[0].section(u' ', 1, 1) + u'/' + lines[0].section(u' ', 3, 3);
        EXPECT_EQ(lines[1], QStringLiteral("  second line ") + id);
    }
}

TEST(Log, InnermostCaptureReceivesAndOuterResumes) {
    LogCapture outer;
    support::log(QStringLiteral("one"));
    {
        LogCapture inner;
        support::log(QStringLiteral("two"));
        EXPECT_EQ(inner.records(), QStringList{QStringLiteral("two")});
    }
    support::log(QStringLiteral("three"));
    EXPECT_EQ(outer.records(), (QStringList{QStringLiteral("one"), QStringLiteral("three")}));
    EXPECT_EQ(outer.indexOfPrefix(QStringLiteral("th")), 1);
    EXPECT_EQ(outer.indexOf(QStringLiteral("one"), 1), -1);
}
