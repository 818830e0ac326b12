#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tools/guardian/HeartbeatWatch.h"

#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using corvane::test::writeFile;

/// Beats are counted by their change.
class tst_HeartbeatWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void aRunsBeats();
    void whatAFormerRunLeftIsNoBeat();
    void aliveByABeatOfItsOwn();
    void aClockThatWasSetBack();
    void aFileThatIsBeingWritten();

private:
    void beat(const QByteArray &text) const { writeFile(m_folder->filePath(u".heartbeat"_s), text); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void tst_HeartbeatWatch::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

void tst_HeartbeatWatch::aRunsBeats()
{
    HeartbeatWatch watch(Marks{m_folder->path()});
    watch.look();
    QCOMPARE(watch.beats(), 0);
    beat("1790000000000");
    watch.look();
    watch.look();
    QCOMPARE(watch.beats(), 1);
    beat("1790000002000");
    watch.look();
    QCOMPARE(watch.beats(), 2);
    QVERIFY(watch.sinceBeat() <= watch.sinceBegin());
}

void tst_HeartbeatWatch::whatAFormerRunLeftIsNoBeat()
{
    HeartbeatWatch watch(Marks{m_folder->path()});
    beat("1790000000000");
    watch.begin();
    watch.look();
    QCOMPARE(watch.beats(), 0);
    beat("1790000002000");
    watch.look();
    QCOMPARE(watch.beats(), 1);
    watch.begin();
    watch.look();
    QCOMPARE(watch.beats(), 0);
}

void tst_HeartbeatWatch::aliveByABeatOfItsOwn()
{
    constexpr std::chrono::hours longEnough(24);
    beat("1790000000000");
    HeartbeatWatch watch(Marks{m_folder->path()});
    watch.look();
    QVERIFY(!watch.isLive(longEnough));
    beat("1790000002000");
    watch.look();
    QVERIFY(watch.isLive(longEnough));
    corvane::test::passTimersOf(10);
    QVERIFY(!watch.isLive(std::chrono::milliseconds(0)));
    watch.begin();
    QVERIFY(!watch.isLive(longEnough));
}

void tst_HeartbeatWatch::aClockThatWasSetBack()
{
    beat("1790000000000");
    HeartbeatWatch watch(Marks{m_folder->path()});
    for (const char *time : {"1600000000000", "1600000002000"}) {
        beat(time);
        watch.look();
    }
    QCOMPARE(watch.beats(), 2);
}

void tst_HeartbeatWatch::aFileThatIsBeingWritten()
{
    HeartbeatWatch watch(Marks{m_folder->path()});
    for (const char *text : {"1790000000000", "", "1790000000000"}) {
        beat(text);
        watch.look();
    }
    QCOMPARE(watch.beats(), 1);
}

CORVANE_TEST(tst_HeartbeatWatch, QCoreApplication)
#include "tst_HeartbeatWatch.moc"
