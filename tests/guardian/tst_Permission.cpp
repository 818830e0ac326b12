#include "tests/support/Runner.h"
#include "tools/guardian/Permission.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;

Q_DECLARE_METATYPE(corvane::guardian::Runs)

/// The one question before every act.
class tst_Permission : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void acts_data();
    void acts();
    void reasons();
    void whoseRuns_data();
    void whoseRuns();
};

void tst_Permission::acts_data()
{
    QTest::addColumn<Runs>("runs");
    QTest::addColumn<bool>("start");
    QTest::addColumn<bool>("replace");
    QTest::addColumn<bool>("kill");
    const auto row = [](const char *title, const Runs &runs, bool start, bool replace, bool kill) {
        QTest::newRow(title) << runs << start << replace << kill;
    };
    row("nobody", {}, true, true, false);
    row("its own", {{1}, {}, true, true, false}, false, false, true);
    row("its own, without marks", {{1}, {}, false, false, false}, false, false, true);
    row("another session's", {{}, {2}, false, false, false}, true, false, false);
    row("both", {{1}, {2}, true, true, false}, false, false, true);
    row("another session's, and old marks here", {{}, {2}, true, false, true}, true, false, false);
    row("marks that beat", {{}, {}, true, true, false}, false, false, false);
    row("marks that nobody has watched yet", {{}, {}, true, false, false}, true, false, false);
    row("marks of a run that has crashed", {{}, {}, true, false, true}, true, true, false);
    row("beats without a sentinel", {{}, {}, false, true, false}, true, true, false);
}

void tst_Permission::acts()
{
    QFETCH(const Runs, runs);
    QTEST(whyNot(Act::Start, runs).isEmpty(), "start");
    QTEST(whyNot(Act::Replace, runs).isEmpty(), "replace");
    QTEST(whyNot(Act::Kill, runs).isEmpty(), "kill");
}

void tst_Permission::reasons()
{
    const Runs own{{12, 13}, {14}, true, true, false};
    QCOMPARE(whyNot(Act::Start, own), u"the program is running (process 12)"_s);
    QCOMPARE(whyNot(Act::Replace, own), u"the program is running (process 12)"_s);
    const Runs others{{}, {14, 15}, true, true, false};
    QCOMPARE(whyNot(Act::Start, others),
             u"the marks in the runtime directory are those of a program that runs"_s);
    QCOMPARE(whyNot(Act::Replace, others), u"somebody else runs the program (process 14)"_s);
    QCOMPARE(whyNot(Act::Kill, others), u"no run of the program is the guardian's"_s);
    QCOMPARE(whyNot(Act::Replace, {{}, {}, true, true, false}),
             u"the marks in the runtime directory may be those of a program that runs"_s);
}

void tst_Permission::whoseRuns_data()
{
    QTest::addColumn<QString>("runtimeDirectory");
    QTest::addColumn<bool>("isOwn");
    QTest::newRow("the same") << u"DIR/runtime"_s << true;
    QTest::newRow("the same in other words") << u"DIR/./other/../runtime/"_s << true;
    QTest::newRow("another") << u"DIR/other"_s << false;
    QTest::newRow("one that isn't there") << u"DIR/missing"_s << false;
    QTest::newRow("unknown") << QString() << false;
#ifndef Q_OS_WIN
    QTest::newRow("through a link") << u"DIR/link"_s << true;
#endif
}

void tst_Permission::whoseRuns()
{
    QFETCH(QString, runtimeDirectory);
    QFETCH(const bool, isOwn);
    const QTemporaryDir folder;
    QVERIFY(QDir(folder.path()).mkdir(u"runtime"_s) && QDir(folder.path()).mkdir(u"other"_s));
    const QString own = folder.filePath(u"runtime"_s);
    QVERIFY(QFile::link(own, folder.filePath(u"link"_s)));
    runtimeDirectory.replace("DIR"_L1, folder.path());

    const Runs runs = sortRuns({{7, runtimeDirectory}}, 0, own);
    QCOMPARE(runs.own, isOwn ? QList<qint64>{7} : QList<qint64>());
    QCOMPARE(runs.others, isOwn ? QList<qint64>() : QList<qint64>{7});
    // Its own child is its own wherever its marks are, and before it can be seen at all.
    QCOMPARE(sortRuns({{7, runtimeDirectory}}, 7, own).own, QList<qint64>{7});
    QCOMPARE(sortRuns({}, 7, own).own, QList<qint64>{7});
    // A runtime directory that is gone, or isn't there yet, is told by its name.
    const QString missing = folder.filePath(u"missing"_s);
    QCOMPARE(sortRuns({{7, runtimeDirectory}}, 0, missing).own.size(), runtimeDirectory == missing ? 1 : 0);
    QCOMPARE(sortRuns({{7, runtimeDirectory}}, 0, {}).own.size(), 0);
}

CORVANE_TEST(tst_Permission, QCoreApplication)
#include "tst_Permission.moc"
