#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// "Detectar HW" and "Sugerir": their texts, how long these stay, and that they change nothing.
class tst_EditorAdvice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void detectShowsTheBestEncoders_data();
    void detectShowsTheBestEncoders();
    void detectGrowsTheBox();
    void suggestShowsTheRates_data();
    void suggestShowsTheRates();
    void tipIsTheButtons();
    void timerHidesTheTip();
    void timeoutHidesTheTip();
    void clickHidesTheTip();
    void adviceChangesNothing();
};

namespace {

/// Opens the page on a fresh pipeline; returns its id.
QString openEncoderPage(EditorBench &ui)
{
    QString id = ui.addUnusual();
    ui.openTab(1);
    return id;
}

/// Values that the controls of the first two pages show.
QVariantList shownValues(const EditorBench &ui)
{
    QVariantList shown;
    for (const QString &combo :
         {u"srcKind"_s, u"fpsPicker"_s, u"encCodec"_s, u"encHw"_s, u"encPreset"_s, u"encAudioCodec"_s})
        shown << ui.value(combo, u"currentText"_s);
    for (const QString &spinBox :
         {u"resW"_s, u"resH"_s, u"encBitrate"_s, u"encKeyint"_s, u"encAudioBitrate"_s})
        shown << ui.value(spinBox, u"value"_s);
    for (const QString &control : {u"encZeroLatency"_s, u"encBFrames"_s})
        shown << ui.value(control, u"checked"_s);
    shown << ui.text(u"srcUriField"_s) << ui.text(u"danteField"_s);
    return shown;
}

} // namespace

void tst_EditorAdvice::detectShowsTheBestEncoders_data()
{
    QTest::addColumn<QByteArray>("encoders");
    QTest::addColumn<QString>("text");

    const QString tip = u"\nPara live: zeroLatency=true, bFrames=false, CBR, GOP=2s. Para gravacao/VOD: "
                        "considere bFrames=true, preset mais lento."_s;
    QTest::newRow("software alone") << QByteArray("libx264")
                                    << u"CPU (x264) (libx264)\nPreset: veryfast"_s + tip;
    QTest::newRow("HEVC") << QByteArray("h264_nvenc libx264 libx265")
                          << u"NVIDIA NVENC (h264_nvenc)\nPreset: p4 (low-latency)"
                             "\nHEVC disponivel: libx265"_s +
                                 tip;
    QTest::newRow("AV1") << QByteArray("h264_qsv av1_qsv")
                         << u"Intel QSV (h264_qsv)\nPreset: 4 (balanced)\nAV1 disponivel: av1_qsv"_s + tip;
    QTest::newRow("HEVC before AV1")
        << QByteArray("h264_amf hevc_amf libsvtav1")
        << u"AMD AMF (h264_amf)\nPreset: speed\nHEVC disponivel: hevc_amf\nAV1 disponivel: libsvtav1"_s + tip;
}

void tst_EditorAdvice::detectShowsTheBestEncoders()
{
    QFETCH(QByteArray, encoders);

    EditorBench ui(encoders);
    openEncoderPage(ui);
    QVERIFY(!ui.isShown(u"encAdviceText"_s));

    ui.click(u"detectHwButton"_s);
    QVERIFY(ui.isShown(u"encAdviceText"_s));
    QTEST(ui.text(u"encAdviceText"_s), "text");

    ui.click(u"detectHwButton"_s); // the same again, not twice the text
    QTEST(ui.text(u"encAdviceText"_s), "text");
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_EditorAdvice::detectGrowsTheBox()
{
    EditorBench ui;
    openEncoderPage(ui);
    const double before = ui.item(u"encAdviceBox"_s)->height();
    ui.click(u"detectHwButton"_s);
    QTRY_VERIFY(ui.item(u"encAdviceBox"_s)->height() > before);
    QTRY_COMPARE(ui.item(u"encAdviceBox"_s)->height(), ui.item(u"encAdviceCol"_s)->implicitHeight() + 20);
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_EditorAdvice::suggestShowsTheRates_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("fpsEntry");
    QTest::addColumn<QString>("text");

    const QString limits = u"\nTwitch max: 6000 | YouTube max: 51000"_s;
    QTest::newRow("1080p30, as the editor starts")
        << 1920 << 1080 << 4
        << u"Recomendado: 5000kbps (min 3000 / max 7500)\nbufsize: 10000k | GOP: 60 frames"_s + limits;
    QTest::newRow("1080p60")
        << 1920 << 1080 << 7
        << u"Recomendado: 7500kbps (min 4500 / max 11250)\nbufsize: 15000k | GOP: 120 frames"_s + limits;
    QTest::newRow("720p50")
        << 1280 << 720 << 5
        << u"Recomendado: 3750kbps (min 2250 / max 5625)\nbufsize: 7500k | GOP: 100 frames"_s + limits;
    QTest::newRow("4K25")
        << 3840 << 2160 << 2
        << u"Recomendado: 20000kbps (min 12000 / max 30000)\nbufsize: 40000k | GOP: 50 frames"_s + limits;
    // A fraction is truncated to a whole number.
    QTest::newRow("29.97")
        << 1920 << 1080 << 3
        << u"Recomendado: 5000kbps (min 3000 / max 7500)\nbufsize: 10000k | GOP: 58 frames"_s + limits;
    QTest::newRow("59.94")
        << 1920 << 1080 << 6
        << u"Recomendado: 7500kbps (min 4500 / max 11250)\nbufsize: 15000k | GOP: 118 frames"_s + limits;
    QTest::newRow("23.976")
        << 1280 << 720 << 0
        << u"Recomendado: 2500kbps (min 1500 / max 3750)\nbufsize: 5000k | GOP: 46 frames"_s + limits;
}

void tst_EditorAdvice::suggestShowsTheRates()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, fpsEntry);

    EditorBench ui;
    ui.addPipeline();
    ui.openTab(0);
    ui.replaceText(u"resW"_s, QString::number(width));
    ui.replaceText(u"resH"_s, QString::number(height));
    ui.choose(u"fpsPicker"_s, fpsEntry);
    ui.openTab(1);

    ui.click(u"suggestButton"_s);
    QTRY_VERIFY(ui.value(u"bitrateAdviceTip"_s, u"opened"_s).toBool());
    QTEST(ui.text(u"bitrateAdviceTip"_s), "text");
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_EditorAdvice::tipIsTheButtons()
{
    EditorBench ui;
    openEncoderPage(ui);
    QCOMPARE(ui.value(u"bitrateAdviceTip"_s, u"visible"_s), QVariant(false));
    QCOMPARE(ui.value(u"bitrateAdviceTip"_s, u"timeout"_s).toInt(), 8000);
    QCOMPARE(ui.value(u"bitrateAdviceHide"_s, u"interval"_s).toInt(), 8000);
    QCOMPARE(ui.value(u"bitrateAdviceHide"_s, u"repeat"_s), QVariant(false));
    QCOMPARE(ui.value(u"bitrateAdviceHide"_s, u"running"_s), QVariant(false));

    ui.click(u"suggestButton"_s);
    QCOMPARE(ui.value(u"bitrateAdviceTip"_s, u"visible"_s), QVariant(true));
    QCOMPARE(ui.value(u"bitrateAdviceTip"_s, u"parent"_s).value<QQuickItem *>(), ui.item(u"suggestButton"_s));
    QCOMPARE(ui.value(u"bitrateAdviceHide"_s, u"running"_s), QVariant(true));
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_EditorAdvice::timerHidesTheTip()
{
    EditorBench ui;
    openEncoderPage(ui);
    ui.object(u"bitrateAdviceTip"_s)->setProperty("timeout", -1);
    ui.object(u"bitrateAdviceHide"_s)->setProperty("interval", 300);

    ui.click(u"suggestButton"_s);
    QVERIFY(ui.value(u"bitrateAdviceTip"_s, u"visible"_s).toBool());
    QTRY_VERIFY(!ui.value(u"bitrateAdviceTip"_s, u"visible"_s).toBool());
    QCOMPARE(ui.value(u"bitrateAdviceHide"_s, u"running"_s), QVariant(false));
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_EditorAdvice::timeoutHidesTheTip()
{
    EditorBench ui;
    openEncoderPage(ui);
    ui.object(u"bitrateAdviceTip"_s)->setProperty("timeout", 300);
    ui.object(u"bitrateAdviceHide"_s)->setProperty("interval", 600000);

    ui.click(u"suggestButton"_s);
    QVERIFY(ui.value(u"bitrateAdviceTip"_s, u"visible"_s).toBool());
    QTRY_VERIFY(!ui.value(u"bitrateAdviceTip"_s, u"visible"_s).toBool());
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_EditorAdvice::clickHidesTheTip()
{
    EditorBench ui;
    openEncoderPage(ui);
    ui.click(u"suggestButton"_s);
    QTRY_VERIFY(ui.value(u"bitrateAdviceTip"_s, u"opened"_s).toBool());

    ui.click(ui.value(u"bitrateAdviceTip"_s, u"contentItem"_s).value<QQuickItem *>());

    QTRY_VERIFY(!ui.value(u"bitrateAdviceTip"_s, u"visible"_s).toBool());
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_EditorAdvice::adviceChangesNothing()
{
    EditorBench ui;
    const QString id = openEncoderPage(ui);
    const QVariantList before = shownValues(ui);
    RecordWatch record(ui, id);

    ui.click(u"detectHwButton"_s);
    ui.click(u"suggestButton"_s);

    QCOMPARE(shownValues(ui), before);
    QCOMPARE(record.changes(), QStringList());
    QCOMPARE(record.edits(), 0);
    QCOMPARE(ui.warnings(), QStringList());
}

CORVANE_TEST(tst_EditorAdvice, corvane::test::WindowApplication)
#include "tst_EditorAdvice.moc"
