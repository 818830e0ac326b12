#include "tests/support/TestSupport.h"
#include "tests/ui/LookTable.h"

#include <QElapsedTimer>
#include <QQmlContext>
#include <QQmlProperty>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <chrono>
#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The log pane. In every case its text becomes the Engine's, and the cursor stands at its end.
class tst_WindowLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void showsWhatWasSaidBefore();
    void followsLineByLine();
    void atOnceAfterARest();
    void noMoreThanTenTimesASecond();
    void noLaterThanATenthOfASecond();
    void cutAtTheBound();
    void cutAndGrownBetweenTwoLooks();
    void clears();
    void clearedAndBegunAgain();
    void sameTextTwice();
    void followsTheNewestLine();
    void staysAtTheNewestLine_data();
    void staysAtTheNewestLine();
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
    m_ui->awaitRest();
}

void tst_WindowLog::cleanup()
{
    compareWithEngine();
    QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
}

void tst_WindowLog::compareWithEngine() const
{
    m_ui->awaitRest();
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
        if (i % 20 == 0)
            compareWithEngine();
    }
    compareWithEngine();
    QVERIFY(shown().contains("linha 0\n"_L1));
    QVERIFY(shown().contains("linha 199"_L1));
}

void tst_WindowLog::atOnceAfterARest()
{
    for (int i = 0; i < 3; ++i) {
        m_ui->awaitRest();
        m_ui->engine().appendLog(u"linha %1"_s.arg(i));
        QCOMPARE(shown(), m_ui->engine().log());
    }
}

void tst_WindowLog::noMoreThanTenTimesASecond()
{
    QSignalSpy changes(m_area, SIGNAL(textChanged()));
    QElapsedTimer time;
    time.start();
    const QString id = m_ui->addFake(u"flood=300,pause=250,flood=300,pause=250,progress=200"_s);
    m_ui->engine().startPipeline(id);
    QVERIFY(waitUntil([&] { return m_ui->engine().log().contains("[stats] frame=  200"_L1); }));
    // A timer may come a twentieth of its time too early.
    const qint64 allowed = time.elapsed() / 95 + 2;
    QVERIFY2(changes.count() <= allowed, qPrintable(u"%1 of %2"_s.arg(changes.count()).arg(allowed)));
    QVERIFY(changes.count() > 0);
    m_ui->engine().stopPipeline(id);
}

void tst_WindowLog::noLaterThanATenthOfASecond()
{
    m_ui->engine().appendLog(u"de uma vez"_s);
    m_ui->engine().appendLog(u"logo depois"_s);
    QVERIFY(!shown().contains("logo depois"_L1));
    // By the order of two timers: on a busy machine both may be late.
    QString then;
    QTimer::singleShot(std::chrono::milliseconds(120), Qt::PreciseTimer, m_area, [&] { then = shown(); });
    QTRY_VERIFY(!then.isEmpty());
    QCOMPARE(then, m_ui->engine().log());
}

void tst_WindowLog::cutAtTheBound()
{
    fill(59000);
    compareWithEngine();
    // Over the bound the Engine drops the older part.
    qsizetype before = m_ui->engine().log().size();
    int cuts = 0;
    for (int i = 0; i < 700; ++i) {
        m_ui->engine().appendLog(u"linha %1 de um registro cheio"_s.arg(i));
        const qsizetype now = m_ui->engine().log().size();
        QVERIFY(now <= 60000);
        cuts += now < before ? 1 : 0;
        before = now;
        if (i % 70 == 0 || now < 40100)
            compareWithEngine();
    }
    QVERIFY(cuts >= 1);
    compareWithEngine();
    QVERIFY(shown().size() >= 40000);
}

// Equal lines end alike wherever they stand.
void tst_WindowLog::cutAndGrownBetweenTwoLooks()
{
    const QString line = u"[stats] igual"_s;
    const auto length = [&] { return m_ui->engine().log().size(); };
    m_ui->engine().clearLog();
    const qsizetype stamped = QStringLiteral("HH:mm:ss \n").size();
    const qsizetype period = stamped + line.size();
    while (length() < 30000)
        m_ui->engine().appendLog(u"outra coisa"_s);
    // What is left after a cut differs from what is shown by whole lines.
    m_ui->engine().appendLog(QString((40000 - length() - stamped) % period + period, u'.'));
    while (length() + period <= 60000)
        m_ui->engine().appendLog(line);
    compareWithEngine();
    const qsizetype before = length();
    int lines = 0;
    while (length() < before || lines == 0) {
        m_ui->engine().appendLog(line);
        ++lines;
    }
    QCOMPARE((length() - before) % period, 0);
    m_ui->engine().appendLog(line);
    compareWithEngine();
}

void tst_WindowLog::clears()
{
    fill(2000);
    m_ui->awaitRest();
    QVERIFY(!shown().isEmpty());
    m_ui->click(u"clearLogButton"_s);
    QCOMPARE(m_ui->engine().log(), QString());
    QCOMPARE(shown(), QString());
    m_ui->awaitRest();
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

void tst_WindowLog::staysAtTheNewestLine_data()
{
    QTest::addColumn<QSize>("window");
    QTest::addColumn<double>("pane");

    QTest::newRow("a lower pane") << QSize(1280, 820) << 70.0;
    QTest::newRow("a higher pane") << QSize(1280, 820) << 400.0;
    QTest::newRow("a narrower window, where lines wrap") << QSize(1000, 820) << 160.0;
}

void tst_WindowLog::staysAtTheNewestLine()
{
    QFETCH(const QSize, window);
    QFETCH(const double, pane);
    for (int i = 0; i < 100; ++i)
        m_ui->engine().appendLog(u"linha %1 "_s.arg(i) + QString(180, u'x'));
    m_ui->awaitRest();
    QQuickItem *logPane = m_ui->item(u"logPane"_s);
    QQmlProperty paneHeight(logPane, u"SplitView.preferredHeight"_s, qmlContext(logPane));
    const QQuickItem *view = m_ui->item(u"logScroll"_s);
    const auto newestInView = [&] {
        const QRectF cursor = m_area->property("cursorRectangle").toRectF();
        const QRectF place = m_area->mapRectToItem(view, cursor);
        return place.top() >= 0 && place.bottom() <= view->height() + 0.5;
    };
    QTRY_VERIFY(newestInView());

    m_ui->window().resize(window);
    QVERIFY(paneHeight.write(pane));
    QTRY_COMPARE(logPane->height(), pane);
    QTRY_COMPARE(logPane->width(), double(window.width()));
    QTRY_VERIFY(newestInView());

    // Who reads further up stays there.
    auto *flickable = view->property("contentItem").value<QQuickItem *>();
    flickable->setProperty("contentY", 0.0);
    QVERIFY(paneHeight.write(100.0));
    QTRY_COMPARE(logPane->height(), 100.0);
    QCOMPARE(flickable->property("contentY").toReal(), 0.0);
}

void tst_WindowLog::readOnly()
{
    m_ui->engine().appendLog(u"fica"_s);
    m_ui->awaitRest();
    m_ui->click(m_area);
    QVERIFY(m_area->hasActiveFocus());
    m_ui->type(u"x"_s);
    m_ui->press(Qt::Key_Backspace);
    m_ui->press(Qt::Key_V, Qt::ControlModifier);
    QCOMPARE(shown(), m_ui->engine().log());
    m_ui->engine().appendLog(u"de volta ao fim"_s); // from where the click has put the cursor
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
        compareWithEngine();
        QVERIFY2(shown().contains(line), qPrintable(shown()));
    }
}

void tst_WindowLog::longLinesWrap()
{
    m_ui->engine().clearLog();
    m_ui->engine().appendLog(u"curta"_s);
    m_ui->awaitRest();
    const int lines = m_area->property("lineCount").toInt();
    m_ui->engine().appendLog(QString(30000, u'W')); // no blank to break at
    QTRY_VERIFY(m_area->property("lineCount").toInt() > lines + 10);
    QVERIFY(m_area->property("contentWidth").toDouble() <= m_ui->item(u"logScroll"_s)->width());
    m_ui->engine().appendLog(u"palavra "_s.repeated(3000));
    m_ui->awaitRest();
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

// A text document knows one line end. What comes after such a line has to stand in its place all the same.
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
        m_ui->awaitRest();
        QCOMPARE(shown(), expected.replace(line, asShown));
    }
    m_ui->engine().clearLog();
}

void tst_WindowLog::oneLineOverTheBound()
{
    m_ui->engine().clearLog();
    m_ui->engine().appendLog(u"antes"_s);
    m_ui->engine().appendLog(u"início "_s + u"palavra "_s.repeated(10000));
    compareWithEngine();
    QCOMPARE(shown().size(), 40000);
    m_ui->engine().appendLog(u"depois"_s);
    m_ui->awaitRest();
    QVERIFY(shown().endsWith("depois\n"_L1));
}

QTEST_MAIN(tst_WindowLog)
#include "tst_WindowLog.moc"
