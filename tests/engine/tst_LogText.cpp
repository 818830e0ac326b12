#include "engine/LogText.h"
#include "tests/support/Runner.h"

#include <QTime>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

class tst_LogText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stampsALine_data();
    void stampsALine();
    void boundsTheText_data();
    void boundsTheText();
    void keepsTheEndOfTheText();
};

void tst_LogText::stampsALine_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QTime>("now");
    QTest::addColumn<QString>("after");

    QTest::newRow("two digits each") << u""_s << u"olá"_s << QTime(1, 2, 3) << u"01:02:03 olá\n"_s;
    QTest::newRow("24 hours") << u""_s << u"x"_s << QTime(23, 59, 59) << u"23:59:59 x\n"_s;
    QTest::newRow("milliseconds are not shown")
        << u""_s << u"x"_s << QTime(12, 0, 0, 999) << u"12:00:00 x\n"_s;
    QTest::newRow("goes to the end") << u"00:00:00 a\n"_s << u"b"_s << QTime(0, 0, 1)
                                     << u"00:00:00 a\n00:00:01 b\n"_s;
    QTest::newRow("an empty line keeps its stamp") << u""_s << u""_s << QTime(7, 8, 9) << u"07:08:09 \n"_s;
    QTest::newRow("blanks stay") << u""_s << u"  x "_s << QTime(7, 8, 9) << u"07:08:09   x \n"_s;
    QTest::newRow("a line feed within stays") << u""_s << u"a\nb"_s << QTime(7, 8, 9) << u"07:08:09 a\nb\n"_s;
    QTest::newRow("place markers stay") << u""_s << u"%1 %2"_s << QTime(7, 8, 9) << u"07:08:09 %1 %2\n"_s;
}

void tst_LogText::stampsALine()
{
    QFETCH(QString, before);
    QFETCH(QString, line);
    QFETCH(QTime, now);

    QString log = before;
    appendLogLine(log, line, now);
    QTEST(log, "after");
}

void tst_LogText::boundsTheText_data()
{
    QTest::addColumn<qsizetype>("before");
    QTest::addColumn<qsizetype>("lineLength"); // the stamp and the line feed add 10 characters
    QTest::addColumn<qsizetype>("after");

    const auto row = [](const char *name, qsizetype before, qsizetype lineLength, qsizetype after) {
        QTest::newRow(name) << before << lineLength << after;
    };
    row("one below the limit stays", 0, 59989, 59999);
    row("the limit itself stays", 0, 59990, 60000);
    row("one above the limit is cut", 0, 59991, 40000);
    row("a short line up to the limit", 59989, 1, 60000);
    row("a short line over the limit", 59990, 1, 40000);
    row("an empty line over the limit", 59991, 0, 40000);
    row("a single line longer than both bounds", 0, 200000, 40000);
    row("grows again after a cut", 40000, 5, 40015);
}

void tst_LogText::boundsTheText()
{
    QFETCH(qsizetype, before);
    QFETCH(qsizetype, lineLength);

    QString log(before, u'a');
    appendLogLine(log, QString(lineLength, u'b'), QTime(1, 2, 3));
    QTEST(log.size(), "after");
    QVERIFY(log.endsWith(u'\n'));
}

void tst_LogText::keepsTheEndOfTheText()
{
    QString log = QString(30000, u'a') + QString(30000, u'b');
    appendLogLine(log, u"fim"_s, QTime(0, 0, 2));

    // The cut doesn't look for a line feed: the rest begins in the middle of a line.
    QCOMPARE(log, QString(9987, u'a') + QString(30000, u'b') + u"00:00:02 fim\n"_s);
}

CORVANE_TEST(tst_LogText, corvane::test::NoApplication)
#include "tst_LogText.moc"
