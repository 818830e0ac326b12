#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/ui/LookTable.h"

#include <QAbstractEventDispatcher>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The log pane. In every case its text is the Engine's, and the cursor stands at its end.
class tst_WindowLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void showsWhatWasSaidBefore();
    void followsLineByLine();
    void equalAfterEveryTurn();
    void cutAtTheBound();
    void clears();
    void clearedAndBegunAgain();
    void sameTextTwice();
    void followsTheNewestLine();
    void readOnly();
    void markupStandsLiterally_data();
    void markupStandsLiterally();
    void longLinesWrap();
    void specialCharacters();
    void otherLineEnds_data();
    void otherLineEnds();
    void oneLineOverTheBound();

private:
    [[nodiscard]] QString shown() const { return lookText(m_area, u"text"_s); }
    void compareWithEngine() const;
    void fill(qsizetype length);

    std::unique_ptr<Interface> m_ui;
    QQuickItem *m_area = nullptr;
};

void tst_WindowLog::init()
{
    m_ui = std::make_unique<Interface>();
    m_area = m_ui->item(u"logArea"_s);
}

void tst_WindowLog::cleanup()
{
    compareWithEngine();
    QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
}

void tst_WindowLog::compareWithEngine() const
{
    QCOMPARE(shown(), m_ui->engine().log());
    QCOMPARE(m_area->property("length").toLongLong(), m_ui->engine().log().size());
    QCOMPARE(m_area->property("cursorPosition").toLongLong(), m_ui->engine().log().size());
}

void tst_WindowLog::fill(qsizetype length)
{
    while (m_ui->engine().log().size() < length)
        m_ui->engine().appendLog(u"[stats] frame= 100 fps= 30 q=28.0 bitrate=6012.3kbits/s speed=1x"_s);
}

void tst_WindowLog::showsWhatWasSaidBefore()
{
    QVERIFY2(shown().contains("ffmpeg="_L1), qPrintable(shown())); // the probe's line, older than the window
    compareWithEngine();
}

void tst_WindowLog::followsLineByLine()
{
    for (int i = 0; i < 200; ++i) {
        m_ui->engine().appendLog(u"linha %1"_s.arg(i));
        compareWithEngine();
    }
    QVERIFY(shown().contains("linha 0\n"_L1));
    QVERIFY(shown().contains("linha 199"_L1));
}

void tst_WindowLog::equalAfterEveryTurn()
{
    int turns = 0;
    int unequal = 0;
    const auto look = [&] {
        ++turns;
        unequal += shown() == m_ui->engine().log() ? 0 : 1;
    };
    connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, m_area, look);

    const QString id = m_ui->addFake(u"flood=300,pause=20,progress=200"_s);
    m_ui->engine().startPipeline(id);
    QVERIFY(waitUntil([&] { return m_ui->engine().log().contains("[stats] frame=  200"_L1); }));
    m_ui->engine().stopPipeline(id);
    disconnect(QAbstractEventDispatcher::instance(), nullptr, m_area, nullptr);
    QVERIFY(turns > 0);
    QCOMPARE(unequal, 0);
}

void tst_WindowLog::cutAtTheBound()
{
    fill(59000);
    compareWithEngine();
    // Beyond the limit the Engine drops the older part.
    qsizetype before = m_ui->engine().log().size();
    int cuts = 0;
    for (int i = 0; i < 700; ++i) {
        m_ui->engine().appendLog(u"linha %1 de um registro cheio"_s.arg(i));
        const qsizetype now = m_ui->engine().log().size();
        QVERIFY(now <= 60000);
        cuts += now < before ? 1 : 0;
        before = now;
        if (i % 10 == 0 || cuts == 1)
            compareWithEngine();
    }
    QVERIFY(cuts >= 1);
    QVERIFY(shown().size() >= 40000);
}

void tst_WindowLog::clears()
{
    fill(2000);
    QVERIFY(!shown().isEmpty());
    m_ui->click(u"clearLogButton"_s);
    QCOMPARE(m_ui->engine().log(), QString());
    QCOMPARE(shown(), QString());
    m_ui->click(u"clearLogButton"_s); // nothing to clear
    QCOMPARE(shown(), QString());
}

void tst_WindowLog::clearedAndBegunAgain()
{
    fill(2000);
    const QString first = m_ui->engine().log().section(u'\n', 0, 0);
    m_ui->engine().clearLog();
    m_ui->engine().appendLog(first.section(u' ', 1)); // begins as the text before did
    fill(3000);
    compareWithEngine();
    QCOMPARE(shown().count(first.section(u' ', 1)), 1);
}

void tst_WindowLog::sameTextTwice()
{
    m_ui->engine().appendLog(u"igual"_s);
    m_ui->engine().appendLog(u"igual"_s);
    Q_EMIT m_ui->engine().logChanged(); // with nothing new
    compareWithEngine();
    QCOMPARE(shown().count("igual"_L1), 2);
}

void tst_WindowLog::followsTheNewestLine()
{
    fill(20000);
    auto *flickable = m_ui->item(u"logScroll"_s)->property("contentItem").value<QQuickItem *>();
    const auto atEnd = [&] {
        const double limit = flickable->property("contentHeight").toDouble() - flickable->height();
        return limit > 0 && limit - flickable->property("contentY").toDouble() < 40;
    };
    QTRY_VERIFY(atEnd());

    flickable->setProperty("contentY", 0.0);
    QVERIFY(!atEnd());
    m_ui->engine().appendLog(u"a mais nova"_s);
    QTRY_VERIFY(atEnd());
}

void tst_WindowLog::readOnly()
{
    m_ui->engine().appendLog(u"fica"_s);
    m_ui->click(m_area);
    QVERIFY(m_area->hasActiveFocus());
    m_ui->type(u"x"_s);
    m_ui->press(Qt::Key_Backspace);
    m_ui->press(Qt::Key_V, Qt::ControlModifier);
    QCOMPARE(shown(), m_ui->engine().log());
    m_ui->engine().appendLog(u"de volta ao fim"_s); // from the cursor's place after the click
}

void tst_WindowLog::markupStandsLiterally_data()
{
    QTest::addColumn<QString>("line");

    QTest::newRow("bold") << u"<b>forte</b>"_s;
    QTest::newRow("picture") << u"<img src=\"file:///corvane-no-such-picture.png\">"_s;
    QTest::newRow("document") << u"<html><body><h1>x</h1></body></html>"_s;
    QTest::newRow("entity") << u"a &lt; b &amp;&nbsp;c"_s;
    QTest::newRow("line break element") << u"um<br>dois"_s;
    QTest::newRow("markdown") << u"# título **forte**"_s;
}

void tst_WindowLog::markupStandsLiterally()
{
    QFETCH(const QString, line);
    for (const bool first : {false, true}) {
        if (first)
            m_ui->engine().clearLog();
        m_ui->engine().appendLog(line);
        QVERIFY2(shown().contains(line), qPrintable(shown()));
        compareWithEngine();
    }
}

void tst_WindowLog::longLinesWrap()
{
    m_ui->engine().clearLog();
    m_ui->engine().appendLog(u"curta"_s);
    const int lines = m_area->property("lineCount").toInt();
    m_ui->engine().appendLog(QString(30000, u'W')); // no blank to break at
    QTRY_VERIFY(m_area->property("lineCount").toInt() > lines + 10);
    QVERIFY(m_area->property("contentWidth").toDouble() <= m_ui->item(u"logScroll"_s)->width());
    m_ui->engine().appendLog(u"palavra "_s.repeated(3000));
    QVERIFY(m_area->property("contentWidth").toDouble() <= m_ui->item(u"logScroll"_s)->width());
}

void tst_WindowLog::specialCharacters()
{
    for (const QString &line :
         {u"📡 emoji 👩‍👩‍👧‍👦"_s, u"שלום \u202Eevil"_s, u"\ttab"_s, u"dois\nna mesma"_s}) {
        m_ui->engine().appendLog(line);
        compareWithEngine();
    }
}

void tst_WindowLog::otherLineEnds_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("asShown");

    QTest::newRow("carriage return") << u"um\rdois"_s << u"um\ndois"_s;
    QTest::newRow("carriage return and line feed") << u"um\r\ndois"_s << u"um\ndois"_s;
    QTest::newRow("line separator") << u"um\u2028dois"_s << u"um\ndois"_s;
    QTest::newRow("paragraph separator") << u"um\u2029dois"_s << u"um\ndois"_s;
    QTest::newRow("no-break space") << u"um\u00A0dois"_s << u"um dois"_s;
}

// A text document knows one kind of line end. The text after such a line end has to be in its
// place all the same.
void tst_WindowLog::otherLineEnds()
{
    QFETCH(const QString, line);
    QFETCH(const QString, asShown);
    for (const bool whole : {false, true}) {
        m_ui->engine().clearLog();
        if (!whole)
            m_ui->engine().appendLog(u"antes"_s);
        m_ui->engine().appendLog(line);
        m_ui->engine().appendLog(u"depois"_s);
        QString expected = m_ui->engine().log();
        QCOMPARE(shown(), expected.replace(line, asShown));
    }
    m_ui->engine().clearLog();
}

void tst_WindowLog::oneLineOverTheBound()
{
    m_ui->engine().clearLog();
    m_ui->engine().appendLog(u"antes"_s);
    m_ui->engine().appendLog(u"início "_s + u"palavra "_s.repeated(10000));
    QCOMPARE(shown().size(), 40000);
    compareWithEngine();
    m_ui->engine().appendLog(u"depois"_s);
    QVERIFY(shown().endsWith("depois\n"_L1));
}

CORVANE_TEST(tst_WindowLog, corvane::test::WindowApplication)
#include "tst_WindowLog.moc"
