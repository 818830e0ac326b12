#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The three ways to add an output on the page "Saídas", and the scenarios of the SRT form.
class tst_EditorOutputsAdd : public EditorPageTest
{
    Q_OBJECT

public:
    tst_EditorOutputsAdd()
        : EditorPageTest(2)
    {
    }

private Q_SLOTS:
    void addsRtmp();
    void addsSrt();
    void addsSrtWithWhatIsStillBeingTyped();
    void addsSrtla();
    void goesToTheEndOfTheList();
    void emptyFieldAddsNothing_data();
    void emptyFieldAddsNothing();
    void blanksStandAsTheyAre_data();
    void blanksStandAsTheyAre();
    void returnInAFieldAddsNothing_data();
    void returnInAFieldAddsNothing();
    void pastedLineBreakStaysOneOutput();
    void scenarioSetsTheForm_data();
    void scenarioSetsTheForm();
    void scenarioIsKeptByTheNextOutput();
    void formIsKeptOnANewSelection();
    void noControlOfTheFormSends_data();
    void noControlOfTheFormSends();

private:
    [[nodiscard]] int number(const QString &spinBox) const
    {
        return m_ui->value(spinBox, u"value"_s).toInt();
    }
    void enter(const QString &spinBox, int value);
};

void tst_EditorOutputsAdd::enter(const QString &spinBox, int value)
{
    m_ui->replaceText(spinBox, QString::number(value));
    m_ui->press(Qt::Key_Return);
    QCOMPARE(number(spinBox), value);
}

void tst_EditorOutputsAdd::addsRtmp()
{
    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(u"rtmpUrl"_s, u"rtmp://host/live2/KEY"_s);
    QCOMPARE(record.edits(), 0);
    m_ui->click(u"addRtmpButton"_s);
    QCOMPARE(record.changes(), QStringList({
                                   u"outputs[0].kind 0"_s,
                                   u"outputs[0].url rtmp://host/live2/KEY"_s,
                                   u"outputs[0].enabled true"_s,
                                   u"outputs[0].srtLatencyMs 120"_s,
                                   u"outputs[0].passphrase "_s,
                                   u"outputs[0].streamId "_s,
                                   u"outputs[0].oheadbw 25"_s,
                                   u"outputs[0].maxbw -1"_s,
                                   u"outputs[0].groupMode 0"_s,
                                   u"outputs[0].receiverHost "_s,
                                   u"outputs[0].receiverPort 5000"_s,
                                   u"outputs[0].hasLocalPort false"_s,
                                   u"outputs[0].hasLocalPort2 false"_s,
                               }));
    QCOMPARE(record.edits(), 1);
    QCOMPARE(m_ui->text(u"rtmpUrl"_s), QString());
}

void tst_EditorOutputsAdd::addsSrt()
{
    m_ui->choose(u"srtScenario"_s, 5);
    m_ui->replaceText(u"srtUrl"_s, u"srt://host:9000"_s);
    m_ui->replaceText(u"srtPass"_s, u"segredo-longo"_s);
    m_ui->replaceText(u"srtStreamid"_s, u"#!::r=live/ç,m=publish"_s);
    enter(u"srtLatency"_s, 333);
    enter(u"srtOheadbw"_s, 44);
    enter(u"srtMaxbw"_s, 1234567);

    RecordWatch record(*m_ui, m_id);
    m_ui->click(u"addSrtButton"_s);
    QCOMPARE(record.changes(), QStringList({
                                   u"outputs[0].kind 1"_s,
                                   u"outputs[0].url srt://host:9000"_s,
                                   u"outputs[0].enabled true"_s,
                                   u"outputs[0].srtLatencyMs 333"_s,
                                   u"outputs[0].passphrase segredo-longo"_s,
                                   u"outputs[0].streamId #!::r=live/ç,m=publish"_s,
                                   u"outputs[0].oheadbw 44"_s,
                                   u"outputs[0].maxbw 1234567"_s,
                                   u"outputs[0].groupMode 0"_s,
                                   u"outputs[0].receiverHost "_s,
                                   u"outputs[0].receiverPort 5000"_s,
                                   u"outputs[0].hasLocalPort true"_s,
                                   u"outputs[0].hasLocalPort2 false"_s,
                               }));
    QCOMPARE(record.edits(), 1);

    for (const QString &field : {u"srtUrl"_s, u"srtPass"_s, u"srtStreamid"_s})
        QCOMPARE(m_ui->text(field), QString());
    QCOMPARE(m_ui->value(u"srtScenario"_s, u"currentText"_s).toString(), u"(manual)"_s);
    QCOMPARE(number(u"srtLatency"_s), 333);
    QCOMPARE(number(u"srtOheadbw"_s), 44);
    QCOMPARE(number(u"srtMaxbw"_s), 1234567);
}

void tst_EditorOutputsAdd::addsSrtWithWhatIsStillBeingTyped()
{
    m_ui->replaceText(u"srtUrl"_s, u"srt://host:9000"_s);
    m_ui->replaceText(u"srtLatency"_s, u"999"_s);
    m_ui->click(u"addSrtButton"_s);
    QCOMPARE(m_ui->config(m_id).outputs.value(0).srtLatencyMs, 999);
}

void tst_EditorOutputsAdd::addsSrtla()
{
    m_ui->replaceText(u"srtlaHost"_s, u"receptor.example"_s);
    enter(u"srtlaPort"_s, 5555);

    RecordWatch record(*m_ui, m_id);
    m_ui->click(u"addSrtlaButton"_s);
    QCOMPARE(record.changes(), QStringList({
                                   u"outputs[0].kind 2"_s,
                                   u"outputs[0].url "_s,
                                   u"outputs[0].enabled true"_s,
                                   u"outputs[0].srtLatencyMs 120"_s,
                                   u"outputs[0].passphrase "_s,
                                   u"outputs[0].streamId "_s,
                                   u"outputs[0].oheadbw 25"_s,
                                   u"outputs[0].maxbw -1"_s,
                                   u"outputs[0].groupMode 0"_s,
                                   u"outputs[0].receiverHost receptor.example"_s,
                                   u"outputs[0].receiverPort 5555"_s,
                                   u"outputs[0].hasLocalPort true"_s,
                                   u"outputs[0].hasLocalPort2 true"_s,
                               }));
    QCOMPARE(record.edits(), 1);
    QCOMPARE(m_ui->text(u"srtlaHost"_s), QString());
    QCOMPARE(number(u"srtlaPort"_s), 5555); // for the next one
}

void tst_EditorOutputsAdd::goesToTheEndOfTheList()
{
    m_ui->replaceText(u"srtlaHost"_s, u"h"_s);
    m_ui->click(u"addSrtlaButton"_s);
    m_ui->replaceText(u"rtmpUrl"_s, u"rtmp://a"_s);
    m_ui->click(u"addRtmpButton"_s);
    m_ui->replaceText(u"srtUrl"_s, u"srt://b"_s);
    m_ui->click(u"addSrtButton"_s);

    QList<int> kinds;
    for (const OutputConfig &output : m_ui->config(m_id).outputs)
        kinds << output.kind;
    QCOMPARE(kinds, QList<int>({OutputKind::Srtla, OutputKind::Rtmp, OutputKind::Srt}));
}

void tst_EditorOutputsAdd::emptyFieldAddsNothing_data()
{
    QTest::addColumn<QString>("button");

    QTest::newRow("RTMP") << u"addRtmpButton"_s;
    QTest::newRow("SRT") << u"addSrtButton"_s;
    QTest::newRow("bonding") << u"addSrtlaButton"_s;
}

void tst_EditorOutputsAdd::emptyFieldAddsNothing()
{
    QFETCH(QString, button);

    // The other fields keep their content.
    m_ui->replaceText(u"srtPass"_s, u"pass"_s);
    m_ui->replaceText(u"srtStreamid"_s, u"id"_s);
    m_ui->choose(u"srtScenario"_s, 3);
    RecordWatch record(*m_ui, m_id);
    QSignalSpy log(&m_ui->engine(), &Engine::logChanged);

    m_ui->click(button);
    QCOMPARE(record.edits(), 0);
    QCOMPARE(log.count(), 0);
    QCOMPARE(m_ui->text(u"srtPass"_s), u"pass"_s);
    QCOMPARE(m_ui->text(u"srtStreamid"_s), u"id"_s);
    QCOMPARE(m_ui->value(u"srtScenario"_s, u"currentIndex"_s).toInt(), 3);
}

void tst_EditorOutputsAdd::blanksStandAsTheyAre_data()
{
    QTest::addColumn<QString>("typed");

    QTest::newRow("around") << u"  a b "_s;
    QTest::newRow("alone") << u"  "_s; // is not empty
}

void tst_EditorOutputsAdd::blanksStandAsTheyAre()
{
    QFETCH(const QString, typed);
    for (const QString &field : {u"rtmpUrl"_s, u"srtUrl"_s, u"srtPass"_s, u"srtStreamid"_s, u"srtlaHost"_s})
        m_ui->replaceText(field, typed);

    m_ui->click(u"addRtmpButton"_s);
    m_ui->click(u"addSrtButton"_s);
    m_ui->click(u"addSrtlaButton"_s);

    const QList<OutputConfig> outputs = m_ui->config(m_id).outputs;
    QCOMPARE(outputs.size(), 3);
    QCOMPARE(outputs.at(0).url, typed);
    QCOMPARE(outputs.at(1).url, typed);
    QCOMPARE(outputs.at(1).passphrase, typed);
    QCOMPARE(outputs.at(1).streamId, typed);
    QCOMPARE(outputs.at(2).receiverHost, typed);
}

void tst_EditorOutputsAdd::returnInAFieldAddsNothing_data()
{
    QTest::addColumn<QString>("field");

    for (const char *field : {"rtmpUrl", "srtUrl", "srtPass", "srtStreamid", "srtlaHost"})
        QTest::newRow(field) << QString::fromLatin1(field);
}

void tst_EditorOutputsAdd::returnInAFieldAddsNothing()
{
    QFETCH(QString, field);

    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(field, u"text"_s);
    m_ui->press(Qt::Key_Return);
    m_ui->press(Qt::Key_Enter);
    QCOMPARE(record.edits(), 0);
    QCOMPARE(m_ui->text(field), u"text"_s);
    m_ui->replaceText(field, u""_s);
}

void tst_EditorOutputsAdd::pastedLineBreakStaysOneOutput()
{
    m_ui->replaceText(u"rtmpUrl"_s, u""_s);
    m_ui->paste(u"rtmp://host/live\nKEY"_s);
    const QString shown = m_ui->text(u"rtmpUrl"_s);
    QVERIFY2(shown.startsWith("rtmp://host/live"_L1) && shown.endsWith("KEY"_L1), qPrintable(shown));
    m_ui->click(u"addRtmpButton"_s);
    QCOMPARE(m_ui->config(m_id).outputs.size(), 1);
    QCOMPARE(m_ui->config(m_id).outputs.at(0).url, shown);
}

void tst_EditorOutputsAdd::scenarioSetsTheForm_data()
{
    QTest::addColumn<int>("entry");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<int>("latency");
    QTest::addColumn<int>("oheadbw");
    QTest::addColumn<int>("maxbw");

    // The advice's limit of -1 is below the control's range. Three of the five names are none of the
    // advice's.
    QTest::newRow("manual leaves the form") << 0 << u"(manual)"_s << 3000 << 99 << 500000;
    QTest::newRow("studio is generic") << 1 << u"Estúdio LAN"_s << 500 << 25 << 0;
    QTest::newRow("internet is generic") << 2 << u"Internet Fibra"_s << 500 << 25 << 0;
    QTest::newRow("field has its own row") << 3 << u"IRL 4G/5G"_s << 1500 << 50 << 0;
    QTest::newRow("bonding is generic") << 4 << u"Bonding srtla"_s << 500 << 25 << 0;
    QTest::newRow("relay has its own row") << 5 << u"Relay"_s << 250 << 25 << 0;
}

void tst_EditorOutputsAdd::scenarioSetsTheForm()
{
    QFETCH(int, entry);

    m_ui->replaceText(u"srtUrl"_s, u"srt://keep"_s);
    enter(u"srtLatency"_s, 3000);
    enter(u"srtOheadbw"_s, 99);
    enter(u"srtMaxbw"_s, 500000);
    RecordWatch record(*m_ui, m_id);

    m_ui->choose(u"srtScenario"_s, entry);
    QTEST(m_ui->value(u"srtScenario"_s, u"currentText"_s).toString(), "shown");
    QTEST(number(u"srtLatency"_s), "latency");
    QTEST(number(u"srtOheadbw"_s), "oheadbw");
    QTEST(number(u"srtMaxbw"_s), "maxbw");
    QCOMPARE(m_ui->text(u"srtUrl"_s), u"srt://keep"_s);
    QCOMPARE(record.edits(), 0);
}

void tst_EditorOutputsAdd::scenarioIsKeptByTheNextOutput()
{
    m_ui->choose(u"srtScenario"_s, 3);
    m_ui->replaceText(u"srtUrl"_s, u"srt://a"_s);
    m_ui->click(u"addSrtButton"_s);

    const OutputConfig output = m_ui->config(m_id).outputs.value(0);
    QCOMPARE(output.srtLatencyMs, 1500);
    QCOMPARE(output.oheadbw, 50);
    QCOMPARE(output.maxbw, 0);

    // The combo box was reset by code, which is no choice.
    QCOMPARE(m_ui->value(u"srtScenario"_s, u"currentIndex"_s).toInt(), 0);
    QCOMPARE(number(u"srtLatency"_s), 1500);
    QCOMPARE(number(u"srtOheadbw"_s), 50);
}

void tst_EditorOutputsAdd::formIsKeptOnANewSelection()
{
    m_ui->replaceText(u"rtmpUrl"_s, u"rtmp://typed"_s);
    m_ui->replaceText(u"srtUrl"_s, u"srt://typed"_s);
    m_ui->replaceText(u"srtlaHost"_s, u"typed"_s);
    const QString other = m_ui->addUnusual();
    QCOMPARE(m_ui->text(u"rtmpUrl"_s), u"rtmp://typed"_s);
    QCOMPARE(m_ui->text(u"srtUrl"_s), u"srt://typed"_s);
    QCOMPARE(m_ui->text(u"srtlaHost"_s), u"typed"_s);

    m_ui->click(u"addRtmpButton"_s);
    QCOMPARE(m_ui->config(other).outputs.size(), 1);
    QCOMPARE(m_ui->config(m_id).outputs.size(), 0);
    m_ui->replaceText(u"srtUrl"_s, u""_s);
    m_ui->replaceText(u"srtlaHost"_s, u""_s);
}

void tst_EditorOutputsAdd::noControlOfTheFormSends_data()
{
    QTest::addColumn<QString>("spinBox");
    QTest::addColumn<int>("stepSize");

    QTest::newRow("latency") << u"srtLatency"_s << 10;
    QTest::newRow("overhead") << u"srtOheadbw"_s << 1;
    QTest::newRow("bandwidth") << u"srtMaxbw"_s << 100000;
    QTest::newRow("port") << u"srtlaPort"_s << 1;
}

void tst_EditorOutputsAdd::noControlOfTheFormSends()
{
    QFETCH(QString, spinBox);
    QFETCH(int, stepSize);

    enter(spinBox, 50);
    RecordWatch record(*m_ui, m_id);
    m_ui->step(spinBox, true);
    QCOMPARE(number(spinBox), 50 + stepSize);
    m_ui->step(spinBox, false);
    QCOMPARE(number(spinBox), 50);
    m_ui->press(Qt::Key_Up);
    QCOMPARE(number(spinBox), 50 + stepSize);
    m_ui->press(Qt::Key_Down);
    QCOMPARE(number(spinBox), 50);
    QCOMPARE(record.edits(), 0);
}

CORVANE_TEST(tst_EditorOutputsAdd, corvane::test::WindowApplication)
#include "tst_EditorOutputsAdd.moc"
