#include "tests/support/TestSupport.h"
#include "tests/ui/LookTable.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

class tst_WindowToolbar : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void chips_data();
    void chips();
    void chipOfARuntime_data();
    void chipOfARuntime();
    void updateButton_data();
    void updateButton();
    void aboutButtonOpensTheDialog();
};

// --- Chips

void tst_WindowToolbar::chips_data()
{
    QTest::addColumn<QString>("protocols");
    QTest::addColumn<QStringList>("tools");
    QTest::addColumn<QString>("healthy");

    const QString ffmpeg = u"ffmpeg"_s;
    const QString transmit = u"srt-live-transmit"_s;
    const QString bond = u"srtla_send"_s;
    QTest::newRow("no tool at all") << QString() << QStringList() << QString();
    QTest::newRow("ffmpeg without SRT") << u"rtmp\n"_s << QStringList{ffmpeg} << u"ffmpeg"_s;
    QTest::newRow("ffmpeg with SRT") << u"rtmp\nsrt\n"_s << QStringList{ffmpeg} << u"ffmpeg SRT"_s;
    QTest::newRow("ffmpeg and the SRT tool")
        << u"rtmp\n"_s << QStringList{ffmpeg, transmit} << u"ffmpeg SRT"_s;
    QTest::newRow("the SRT tool alone") << QString() << QStringList{transmit} << u"SRT"_s;
    QTest::newRow("the bonding tool alone") << QString() << QStringList{bond} << u"srtla"_s;
    QTest::newRow("everything") << u"rtmp\n"_s << QStringList{ffmpeg, transmit, bond}
                                << u"ffmpeg SRT srtla"_s;
}

void tst_WindowToolbar::chips()
{
    QFETCH(const QString, protocols);
    QFETCH(const QStringList, tools);
    QFETCH(const QString, healthy);
    const Interface ui([&](ToolPath &path) {
        for (const QString &tool : tools) {
            if (tool == "ffmpeg"_L1)
                path.addFakeFfmpeg("libx264", protocols.toLatin1());
            else
                path.addCopy(tool, fakeFfmpeg());
        }
    });

    QStringList found;
    for (const QString &name :
         {u"chipFfmpeg"_s, u"chipNdi"_s, u"chipSrt"_s, u"chipSrtla"_s, u"chipDecklink"_s}) {
        const QString dot = lookText(find(ui, name + "/chipDot"_L1), u"color"_s);
        if (dot == "#4ecdc4"_L1)
            found << lookText(find(ui, name + "/chipLabel"_L1), u"text"_s);
        else
            QCOMPARE(dot, u"#e05555"_s);
    }
    QCOMPARE(found.join(u' '), healthy);
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_WindowToolbar::chipOfARuntime_data()
{
    QTest::addColumn<QString>("label");

    QTest::newRow("chipNdi") << u"NDI"_s;
    QTest::newRow("chipDecklink") << u"DeckLink"_s;
}

// No machine of today has these runtimes: the dot follows the chip's test, which is seen here alone.
void tst_WindowToolbar::chipOfARuntime()
{
    QFETCH(const QString, label);
    const Interface ui;
    const QString name = QString::fromUtf8(QTest::currentDataTag());
    QCOMPARE(lookText(find(ui, name), u"healthy"_s), u"false"_s);
    find(ui, name)->setProperty("healthy", true);
    QCOMPARE(lookText(find(ui, name + "/chipDot"_L1), u"color"_s), u"#4ecdc4"_s);
    QCOMPARE(lookText(find(ui, name + "/chipLabel"_L1), u"text"_s), label);
    QCOMPARE(ui.warnings(), QStringList());
}

// --- Update button

void tst_WindowToolbar::updateButton_data()
{
    QTest::addColumn<QString>("steps");
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("foreground");
    QTest::addColumn<bool>("reverting");
    QTest::addColumn<QString>("calls");

    const QString muted = u"#8e8e96"_s;
    const QString accent = u"#4ecdc4"_s;
    const QString danger = u"#e05555"_s;
    const QString ask = u"Verificar update"_s;
    const QString checking = u"Verificando..."_s;
    const QString current = u"✓ Atualizado"_s;
    const QString failed = u"✗ Erro"_s;
    const QString offer = u"Atualizar 0.2.0"_s;

    QTest::newRow("at first") << QString() << 0 << ask << muted << false << QString();
    QTest::newRow("a click checks") << u"click"_s << 1 << checking << muted << false << u"checkNow"_s;
    QTest::newRow("a click while checking does nothing")
        << u"click click"_s << 1 << checking << muted << false << u"checkNow"_s;
    QTest::newRow("up to date") << u"click upToDate"_s << 2 << current << accent << true << u"checkNow"_s;
    QTest::newRow("failed") << u"click checkFailed"_s << 3 << failed << danger << true << u"checkNow"_s;
    QTest::newRow("a check by itself, up to date")
        << u"upToDate"_s << 2 << current << accent << true << QString();
    QTest::newRow("a check by itself, failed")
        << u"checkFailed"_s << 3 << failed << danger << true << QString();
    QTest::newRow("up to date, later")
        << u"click upToDate fire"_s << 0 << ask << muted << false << u"checkNow"_s;
    QTest::newRow("failed, later") << u"click checkFailed fire"_s << 0 << ask << muted << false
                                   << u"checkNow"_s;
    QTest::newRow("a click on the answer checks again")
        << u"click upToDate click"_s << 1 << checking << muted << true << u"checkNow checkNow"_s;
    QTest::newRow("a click on the error checks again")
        << u"click checkFailed click"_s << 1 << checking << muted << true << u"checkNow checkNow"_s;
    QTest::newRow("an answer's time ends the next check's text, too")
        << u"click upToDate click fire"_s << 0 << ask << muted << false << u"checkNow checkNow"_s;
    QTest::newRow("a click after the time checks again")
        << u"click checkFailed fire click"_s << 1 << checking << muted << false << u"checkNow checkNow"_s;
    QTest::newRow("an offer") << u"offer"_s << 0 << offer << muted << false << QString();
    QTest::newRow("an offer while checking")
        << u"click offer"_s << 1 << offer << muted << false << u"checkNow"_s;
    QTest::newRow("a click on an offer applies")
        << u"offer click"_s << 0 << offer << muted << false << u"applyIfSafe"_s;
    QTest::newRow("a click on an offer that a check has found")
        << u"click offer click"_s << 1 << offer << muted << false << u"checkNow applyIfSafe"_s;
    QTest::newRow("each click on an offer applies")
        << u"offer click click"_s << 0 << offer << muted << false << u"applyIfSafe applyIfSafe"_s;
    QTest::newRow("an offer keeps the colour of success")
        << u"offer upToDate"_s << 2 << offer << accent << true << QString();
    QTest::newRow("an offer keeps the colour of failure")
        << u"offer checkFailed"_s << 3 << offer << danger << true << QString();
    QTest::newRow("an offer after the time")
        << u"offer checkFailed fire"_s << 0 << offer << muted << false << QString();
}

void tst_WindowToolbar::updateButton()
{
    QFETCH(const QString, steps);
    Interface ui;
    QQuickItem *button = ui.item(u"updateBtn"_s);
    QObject *timer = ui.object(u"updateRevertTimer"_s);
    QCOMPARE(timer->property("interval").toInt(), 3000);
    QVERIFY(!timer->property("repeat").toBool());

    const QStringList all = steps.split(u' ', Qt::SkipEmptyParts);
    for (const QString &step : all) {
        if (step == "click"_L1) {
            ui.click(button);
        } else if (step == "upToDate"_L1) {
            Q_EMIT ui.updater().upToDate();
        } else if (step == "checkFailed"_L1) {
            Q_EMIT ui.updater().checkFailed(u"porque sim"_s);
        } else if (step == "offer"_L1) {
            ui.updater().offer(u"0.2.0"_s);
        } else {
            QVERIFY(timer->property("running").toBool());
            timer->setProperty("interval", 1);
            QTRY_VERIFY(!timer->property("running").toBool());
        }
    }

    QTEST(button->property("_state").toInt(), "state");
    QTEST(button->property("text").toString(), "text");
    QTEST(lookText(button, u"Material.foreground"_s), "foreground");
    QTEST(timer->property("running").toBool(), "reverting");
    QTEST(ui.updater().calls.join(u' '), "calls");
    QCOMPARE(lookText(ui.item(u"updateText"_s), u"text"_s), button->property("text").toString());
    QCOMPARE(lookText(ui.item(u"updateText"_s), u"color"_s), lookText(button, u"Material.foreground"_s));
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_WindowToolbar::aboutButtonOpensTheDialog()
{
    Interface ui;
    QVERIFY(!ui.object(u"aboutDialog"_s));
    ui.click(u"aboutButton"_s);
    const QObject *dialog = ui.object(u"aboutDialog"_s);
    QVERIFY(dialog);
    QTRY_VERIFY(dialog->property("opened").toBool());
    QCOMPARE(ui.warnings(), QStringList());
}

QTEST_MAIN(tst_WindowToolbar)
#include "tst_WindowToolbar.moc"
