#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The page "Encoder": what each control sends, and when.
class tst_EditorEncoder : public EditorPageTest
{
    Q_OBJECT

public:
    tst_EditorEncoder()
        : EditorPageTest(1)
    {
    }

private Q_SLOTS:
    void choiceSendsItsKey_data();
    void choiceSendsItsKey();
    void numberSendsItsKey_data();
    void numberSendsItsKey();
    void switchSendsItsKey_data();
    void switchSendsItsKey();
    void changeByCodeSendsNothing();
    void untouchedPipelineKeepsItsOwnAudioRate();
    void changeSendsOneKeyToTheNewSelection();
};

void tst_EditorEncoder::choiceSendsItsKey_data()
{
    QTest::addColumn<QString>("combo");
    QTest::addColumn<int>("entry");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("change");

    const auto row = [](const char *combo, int entry, const char *shown, const char *change) {
        QTest::addRow("%s %s", combo, shown) << QString::fromLatin1(combo) << entry
                                             << QString::fromLatin1(shown) << QString::fromLatin1(change);
    };
    row("encCodec", 0, "h264", "encoder.codec 0");
    row("encCodec", 1, "hevc", "encoder.codec 1");
    row("encCodec", 2, "av1", ""); // the record's value already
    row("encHw", 0, "auto", "encoder.hw 0");
    row("encHw", 1, "videotoolbox", "encoder.hw 5");
    row("encHw", 2, "x264", "encoder.hw 1");
    row("encHw", 3, "nvenc", "encoder.hw 2");
    row("encHw", 4, "qsv", "encoder.hw 3");
    row("encHw", 5, "amf", "");
    row("encPreset", 0, "auto", "encoder.preset 0");
    row("encPreset", 1, "ultrafast", "encoder.preset 1");
    row("encPreset", 2, "superfast", "encoder.preset 2");
    row("encPreset", 3, "veryfast", "encoder.preset 3");
    row("encPreset", 4, "fast", "encoder.preset 4");
    row("encPreset", 5, "medium", "encoder.preset 5");
    row("encPreset", 6, "slow", "");
    row("encAudioCodec", 0, "aac", "encoder.audioCodec aac");
    row("encAudioCodec", 1, "opus", "encoder.audioCodec opus");
    row("encAudioCodec", 2, "copy", "encoder.audioCodec copy");
}

void tst_EditorEncoder::choiceSendsItsKey()
{
    QFETCH(QString, combo);
    QFETCH(int, entry);
    QFETCH(QString, change);

    RecordWatch record(*m_ui, m_id);
    m_ui->choose(combo, entry);
    QTEST(m_ui->value(combo, u"currentText"_s).toString(), "shown");
    QCOMPARE(record.changes(), change.isEmpty() ? QStringList() : QStringList(change));
    QCOMPARE(record.edits(), 1); // also where the choice changes nothing
}

void tst_EditorEncoder::numberSendsItsKey_data()
{
    QTest::addColumn<QString>("spinBox");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("afterUp");
    QTest::addColumn<QString>("afterDownTwice");

    QTest::newRow("bit rate") << u"encBitrate"_s << u"8250"_s << u"encoder.bitrate 8250"_s
                              << u"encoder.bitrate 8750"_s << u"encoder.bitrate 7750"_s;
    QTest::newRow("key frame") << u"encKeyint"_s << u"5"_s << u"encoder.keyintSec 5"_s
                               << u"encoder.keyintSec 6"_s << u"encoder.keyintSec 4"_s;
    QTest::newRow("audio bit rate") << u"encAudioBitrate"_s << u"200"_s << u"encoder.audioBitrate 200"_s
                                    << u"encoder.audioBitrate 232"_s << u"encoder.audioBitrate 168"_s;
}

void tst_EditorEncoder::numberSendsItsKey()
{
    QFETCH(QString, spinBox);
    QFETCH(QString, typed);
    QFETCH(QString, change);
    QFETCH(QString, afterUp);
    QFETCH(QString, afterDownTwice);

    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(spinBox, typed);
    QCOMPARE(record.edits(), 0); // not while typing
    m_ui->press(Qt::Key_Return);
    QCOMPARE(record.changes(), QStringList({change}));
    QCOMPARE(record.edits(), 1);

    m_ui->step(spinBox, true);
    QCOMPARE(record.changes(), QStringList({afterUp}));
    m_ui->step(spinBox, false);
    m_ui->step(spinBox, false);
    QCOMPARE(record.changes(), QStringList({afterDownTwice}));
    QCOMPARE(record.edits(), 4);
}

void tst_EditorEncoder::switchSendsItsKey_data()
{
    QTest::addColumn<QString>("control");
    QTest::addColumn<QStringList>("changes"); // after each click

    // The first click sends the opposite of the value shown, whatever the record has.
    QTest::newRow("zero latency, shown on, off in the record")
        << u"encZeroLatency"_s
        << QStringList({u""_s, u"encoder.zeroLatency true"_s, u""_s, u"encoder.zeroLatency true"_s});
    QTest::newRow("B-frames, shown off, on in the record")
        << u"encBFrames"_s
        << QStringList({u""_s, u"encoder.bFrames false"_s, u""_s, u"encoder.bFrames false"_s});
}

void tst_EditorEncoder::switchSendsItsKey()
{
    QFETCH(QString, control);
    QFETCH(QStringList, changes);

    RecordWatch record(*m_ui, m_id);
    qsizetype clicks = 0;
    for (const QString &change : changes) {
        if (clicks % 2 == 0)
            m_ui->click(control);
        else
            m_ui->press(Qt::Key_Space);
        QCOMPARE(record.changes(), change.isEmpty() ? QStringList() : QStringList(change));
        QCOMPARE(record.edits(), ++clicks);
    }
}

void tst_EditorEncoder::changeByCodeSendsNothing()
{
    RecordWatch record(*m_ui, m_id);
    for (const QString &combo : {u"encCodec"_s, u"encHw"_s, u"encPreset"_s, u"encAudioCodec"_s})
        m_ui->item(combo)->setProperty("currentIndex", 2);
    m_ui->item(u"encBitrate"_s)->setProperty("value", 1000);
    m_ui->item(u"encKeyint"_s)->setProperty("value", 3);
    m_ui->item(u"encAudioBitrate"_s)->setProperty("value", 96);
    for (const QString &control : {u"encZeroLatency"_s, u"encBFrames"_s}) {
        const bool shown = m_ui->value(control, u"checked"_s).toBool();
        m_ui->item(control)->setProperty("checked", !shown);
        m_ui->item(control)->setProperty("checked", shown);
    }
    QCOMPARE(record.edits(), 0);
}

void tst_EditorEncoder::untouchedPipelineKeepsItsOwnAudioRate()
{
    m_ui.reset();
    m_ui = std::make_unique<EditorBench>();
    const QString id = m_ui->addPipeline();
    m_ui->openTab(1);
    QCOMPARE(m_ui->value(u"encAudioBitrate"_s, u"value"_s).toInt(), 128);
    QCOMPARE(m_ui->config(id).encoder.audioBitrate, 160);

    m_ui->step(u"encAudioBitrate"_s, true);
    QCOMPARE(m_ui->config(id).encoder.audioBitrate, 160); // 128 and one step of 32
    m_ui->step(u"encAudioBitrate"_s, false);
    QCOMPARE(m_ui->config(id).encoder.audioBitrate, 128);
}

void tst_EditorEncoder::changeSendsOneKeyToTheNewSelection()
{
    m_ui->choose(u"encPreset"_s, 1);
    m_ui->replaceText(u"encBitrate"_s, u"4000"_s);
    m_ui->press(Qt::Key_Return);

    const QString other = m_ui->addUnusual();
    RecordWatch mine(*m_ui, m_id);
    RecordWatch others(*m_ui, other);
    QCOMPARE(m_ui->value(u"encPreset"_s, u"currentText"_s).toString(), u"ultrafast"_s);
    QCOMPARE(m_ui->value(u"encBitrate"_s, u"value"_s).toInt(), 4000);
    QCOMPARE(m_ui->value(u"tabBar"_s, u"currentIndex"_s).toInt(), 1);

    m_ui->step(u"encBitrate"_s, true);
    QCOMPARE(others.changes(), QStringList({u"encoder.bitrate 4500"_s}));
    QCOMPARE(mine.changes(), QStringList());

    m_ui->select(m_id);
    QCOMPARE(m_ui->value(u"encBitrate"_s, u"value"_s).toInt(), 4500);
    QCOMPARE(mine.changes(), QStringList());
    QCOMPARE(others.edits(), 1);
}

CORVANE_TEST(tst_EditorEncoder, corvane::test::WindowApplication)
#include "tst_EditorEncoder.moc"
