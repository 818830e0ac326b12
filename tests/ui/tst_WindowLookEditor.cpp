#include "tests/support/Runner.h"
#include "tests/ui/LookTable.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The four pages of the editor as they stand on the screen, with one output of each kind.
class tst_WindowLookEditor : public LookTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { openWithOutputs(); }

    void frameOfPages_data();
    void frameOfPages();
    void captions_data();
    void captions();
    void headings_data();
    void headings();
    void sourcePage_data();
    void sourcePage() { compareLook(*m_ui); }
    void encoderPage_data();
    void encoderPage() { compareLook(*m_ui); }
    void previewPage_data();
    void previewPage() { compareLook(*m_ui); }
    void orderOfItems_data();
    void orderOfItems();
    void boxesAreAsHighAsTheirContent();
};

// --- What the pages share

void tst_WindowLookEditor::frameOfPages_data()
{
    QTest::addColumn<int>("tab");
    QTest::addColumn<QString>("layout");

    QTest::newRow("sourcePage") << 0 << u"sourceGrid"_s;
    QTest::newRow("encoderPage") << 1 << u"encoderGrid"_s;
    QTest::newRow("outputsPage") << 2 << u"outputsColumn"_s;
    QTest::newRow("previewPage") << 3 << u"previewColumn"_s;
}

void tst_WindowLookEditor::frameOfPages()
{
    QFETCH(const int, tab);
    QFETCH(const QString, layout);
    m_ui->openTab(tab);
    QQuickItem *page = m_ui->item(QString::fromUtf8(QTest::currentDataTag()));
    const QQuickItem *pane = m_ui->item(u"pagePane"_s, page);
    const QQuickItem *inner = m_ui->item(layout, page);
    QVERIFY(page->isVisible());
    QTRY_COMPARE(page->width(), m_ui->item(u"centrePanel"_s)->width());

    const double available = page->property("availableWidth").toDouble();
    QVERIFY(available > 600);
    QCOMPARE(page->property("contentWidth").toDouble(), available);
    QCOMPARE(pane->width(), available);
    QCOMPARE(lookText(m_ui->item(u"pagePane"_s, page), u"Material.background"_s), u"#1a1a1e"_s);
    QCOMPARE(inner->width(), available - 32);
    const double centre = inner->mapToItem(pane, QPointF(inner->width() / 2, 0)).x();
    QVERIFY2(qAbs(centre - pane->width() / 2) <= 0.5, qPrintable(QString::number(centre)));
}

void tst_WindowLookEditor::captions_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("srcKindCaption") << u"Tipo de fonte"_s;
    QTest::newRow("srcUriCaption") << u"URI / fonte"_s;
    QTest::newRow("decklinkCaption") << u"DeckLink device"_s;
    QTest::newRow("danteCaption") << u"Áudio Dante (DVS)"_s;
    QTest::newRow("resolutionCaption") << u"Resolução"_s;
    QTest::newRow("fpsCaption") << u"FPS"_s;
    QTest::newRow("encCodecCaption") << u"Codec video"_s;
    QTest::newRow("encHwCaption") << u"Aceleracao HW"_s;
    QTest::newRow("encPresetCaption") << u"Preset"_s;
    QTest::newRow("encBitrateCaption") << u"Bitrate (kbps)"_s;
    QTest::newRow("encKeyintCaption") << u"Keyframe (s)"_s;
    QTest::newRow("encZeroLatencyCaption") << u"Zero latency"_s;
    QTest::newRow("encBFramesCaption") << u"B-frames"_s;
    QTest::newRow("encAudioCodecCaption") << u"Codec audio"_s;
    QTest::newRow("encAudioBitrateCaption") << u"Bitrate audio (kbps)"_s;
    QTest::newRow("srtScenarioCaption") << u"Cenário"_s;
    QTest::newRow("srtUrlCaption") << u"URL"_s;
    QTest::newRow("srtLatencyCaption") << u"Latência (ms)"_s;
    QTest::newRow("srtPassCaption") << u"Passphrase"_s;
    QTest::newRow("srtStreamidCaption") << u"streamid"_s;
    QTest::newRow("srtOheadbwCaption") << u"oheadbw (%)"_s;
    QTest::newRow("srtMaxbwCaption") << u"maxbw (bps, 0=auto)"_s;
}

void tst_WindowLookEditor::captions()
{
    QFETCH(const QString, text);
    QQuickItem *caption = m_ui->item(QString::fromUtf8(QTest::currentDataTag()));
    QVERIFY(caption);
    QCOMPARE(lookText(caption, u"text"_s), text);
    QCOMPARE(lookText(caption, u"font.pixelSize"_s), u"12"_s);
    QCOMPARE(lookText(caption, u"color"_s), u"#8e8e96"_s);
}

void tst_WindowLookEditor::headings_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("topMargin");

    QTest::newRow("outputsHeading") << u"Saídas configuradas"_s << u"8"_s;
    QTest::newRow("rtmpHeading") << u"Adicionar RTMP"_s << u"8"_s;
    QTest::newRow("srtHeading") << u"Adicionar SRT"_s << u"0"_s;
    QTest::newRow("srtlaHeading") << u"Adicionar Bonding (srtla)"_s << u"0"_s;
    QTest::newRow("previewHeading") << u"Comando ffmpeg (preview / auditoria)"_s << u"8"_s;
}

void tst_WindowLookEditor::headings()
{
    QFETCH(const QString, text);
    QFETCH(const QString, topMargin);
    QQuickItem *heading = m_ui->item(QString::fromUtf8(QTest::currentDataTag()));
    QVERIFY(heading);
    QCOMPARE(lookText(heading, u"text"_s), text);
    QCOMPARE(lookText(heading, u"font.pixelSize"_s), u"13"_s);
    QCOMPARE(lookText(heading, u"font.bold"_s), u"true"_s);
    QCOMPARE(lookText(heading, u"color"_s), u"#e8e8ec"_s);
    QCOMPARE(lookText(heading, u"Layout.topMargin"_s), topMargin);
}

// --- Page by page

void tst_WindowLookEditor::sourcePage_data()
{
    addLooks({
        {"sourceGrid", "columns", "2"},
        {"sourceGrid", "columnSpacing", "16"},
        {"sourceGrid", "rowSpacing", "12"},
        {"srcKind", "model", "testpattern | ndi | srt | capture | decklink | file"},
        {"srcKind", "currentIndex", "0"},
        {"srcKind", "Layout.fillWidth", "true"},
        {"srcUriRow", "spacing", "8"},
        {"srcUriRow", "Layout.fillWidth", "true"},
        {"srcUriField", "placeholderText", "NDI name, srt://host:port, device, arquivo..."},
        {"srcUriField", "text", ""},
        {"srcUriField", "Layout.fillWidth", "true"},
        {"ndiPicker", "visible", "false"},
        {"ndiPicker", "Layout.preferredWidth", "180"},
        {"ndiPicker", "displayText", "NDI…"},
        {"decklinkCaption", "visible", "false"},
        {"decklinkPicker", "visible", "false"},
        {"decklinkPicker", "count", "0"},
        {"danteField", "placeholderText", "device DVS (vazio = sem áudio externo)"},
        {"danteField", "text", ""},
        {"danteField", "Layout.fillWidth", "true"},
        {"resolutionRow", "spacing", "8"},
        {"resolutionRow", "Layout.fillWidth", "true"},
        {"resW", "from", "320"},
        {"resW", "to", "7680"},
        {"resW", "stepSize", "2"},
        {"resW", "value", "1920"},
        {"resW", "editable", "true"},
        {"resTimes", "text", "×"},
        {"resTimes", "color", "#8e8e96"},
        {"resH", "from", "240"},
        {"resH", "to", "4320"},
        {"resH", "stepSize", "2"},
        {"resH", "value", "1080"},
        {"resH", "editable", "true"},
        {"fpsPicker", "model", "23.976 | 24 | 25 | 29.97 | 30 | 50 | 59.94 | 60"},
        {"fpsPicker", "currentText", "30"},
        {"fpsPicker", "Layout.fillWidth", "true"},
    });
}

void tst_WindowLookEditor::encoderPage_data()
{
    addLooks({
        {"encoderGrid", "columns", "2"},
        {"encoderGrid", "columnSpacing", "16"},
        {"encoderGrid", "rowSpacing", "12"},
        {"encoderSpacer", "text", ""},
        {"encoderSpacer", "Layout.columnSpan", "2"},
        {"encAdviceBox", "Layout.columnSpan", "2"},
        {"encAdviceBox", "Layout.fillWidth", "true"},
        {"encAdviceBox", "radius", "6"},
        {"encAdviceBox", "color", "#1a2e2c"},
        {"encAdviceBox", "border.color", "#2a4e4a"},
        {"encAdviceBox", "border.width", "1"},
        {"encAdviceCol", "anchors.margins", "10"},
        {"encAdviceCol", "spacing", "6"},
        {"encAdviceHeader", "spacing", "8"},
        {"encAdviceTitle", "text", "Sugestao de encoder"},
        {"encAdviceTitle", "color", "#4ecdc4"},
        {"encAdviceTitle", "font.pixelSize", "13"},
        {"encAdviceTitle", "font.bold", "true"},
        {"encAdviceFiller", "Layout.fillWidth", "true"},
        {"detectHwButton", "flat", "true"},
        {"detectHwButton", "text", "Detectar HW"},
        {"detectHwButton", "font.pixelSize", "11"},
        {"detectHwButton", "Material.foreground", "#4ecdc4"},
        {"encAdviceText", "visible", "false"},
        {"encAdviceText", "Layout.fillWidth", "true"},
        {"encAdviceText", "wrapMode", "WrapAtWordBoundaryOrAnywhere"},
        {"encAdviceText", "font.family", "#000000"},
        {"encAdviceText", "font.pixelSize", "11"},
        {"encAdviceText", "color", "#ffffff"}, // the control's own, on a dark ground
        {"encCodec", "model", "h264 | hevc | av1"},
        {"encCodec", "currentIndex", "0"},
        {"encCodec", "Layout.fillWidth", "true"},
        {"encHw", "model", "auto | videotoolbox | x264 | nvenc | qsv | amf"},
        {"encHw", "currentIndex", "0"},
        {"encHw", "Layout.fillWidth", "true"},
        {"encPreset", "model", "auto | ultrafast | superfast | veryfast | fast | medium | slow"},
        {"encPreset", "currentIndex", "0"},
        {"encPreset", "Layout.fillWidth", "true"},
        {"encBitrateRow", "spacing", "8"},
        {"encBitrate", "from", "500"},
        {"encBitrate", "to", "50000"},
        {"encBitrate", "stepSize", "500"},
        {"encBitrate", "value", "6000"},
        {"encBitrate", "editable", "true"},
        {"encBitrate", "Layout.fillWidth", "false"},
        {"suggestButton", "flat", "true"},
        {"suggestButton", "text", "Sugerir"},
        {"suggestButton", "font.pixelSize", "11"},
        {"suggestButton", "Material.foreground", "#4ecdc4"},
        {"bitrateAdviceTip", "timeout", "8000"},
        {"bitrateAdviceTip", "font.family", "#000000"},
        {"bitrateAdviceTip", "font.pixelSize", "11"},
        {"bitrateAdviceHide", "interval", "8000"},
        {"bitrateAdviceHide", "repeat", "false"},
        {"encKeyint", "from", "1"},
        {"encKeyint", "to", "10"},
        {"encKeyint", "value", "2"},
        {"encKeyint", "editable", "true"},
        {"encKeyint", "Layout.fillWidth", "false"},
        {"encZeroLatency", "checked", "true"},
        {"encZeroLatency", "Layout.fillWidth", "false"},
        {"encBFrames", "checked", "false"},
        {"encBFrames", "Layout.fillWidth", "false"},
        {"encAudioCodec", "model", "aac | opus | copy"},
        {"encAudioCodec", "currentIndex", "0"},
        {"encAudioCodec", "Layout.fillWidth", "true"},
        {"encAudioBitrate", "from", "64"},
        {"encAudioBitrate", "to", "512"},
        {"encAudioBitrate", "stepSize", "32"},
        {"encAudioBitrate", "value", "128"},
        {"encAudioBitrate", "editable", "true"},
        {"encAudioBitrate", "Layout.fillWidth", "false"},
    });
}

void tst_WindowLookEditor::previewPage_data()
{
    addLooks({
        {"previewColumn", "spacing", "12"},
        {"previewBox", "Layout.fillWidth", "true"},
        {"previewBox", "color", "#242428"},
        {"previewBox", "radius", "6"},
        {"previewText", "anchors.margins", "8"},
        {"previewText", "readOnly", "true"},
        {"previewText", "textFormat", "PlainText"},
        {"previewText", "font.family", "#000000"},
        {"previewText", "font.pixelSize", "11"},
        {"previewText", "color", "#e8e8ec"},
        {"previewText", "background", ""},
        {"previewButtons", "spacing", "12"},
        {"refreshPreviewButton", "flat", "true"},
        {"refreshPreviewButton", "text", "Atualizar preview"},
        {"refreshPreviewButton", "Material.foreground", "#8e8e96"},
        {"previewFiller", "Layout.fillWidth", "true"},
        {"startButton", "text", "▶ Iniciar"},
        {"startButton", "flat", "false"},
        {"startButton", "Material.background", "#4ecdc4"},
        {"startButton", "Material.foreground", "#1a1a1e"},
        {"stopButton", "text", "■ Parar"},
        {"stopButton", "flat", "false"},
        {"stopButton", "Material.background", "#e05555"},
        {"stopButton", "Material.foreground", "#ffffff"},
        {"removePipelineButton", "flat", "true"},
        {"removePipelineButton", "text", "Remover pipeline"},
        {"removePipelineButton", "Material.foreground", "#e05555"},
    });
}

// --- Order and place

void tst_WindowLookEditor::orderOfItems_data()
{
    QTest::addColumn<int>("tab");
    QTest::addColumn<QString>("expected");

    QTest::newRow("sourceGrid")
        << 0
        << u"srcKindCaption srcKind srcUriCaption (srcUriField) danteCaption danteField "
           "resolutionCaption (resW resTimes resH) fpsCaption fpsPicker"_s;
    QTest::newRow("encoderGrid") << 1
                                 << u"encoderSpacer encAdviceBox encCodecCaption encCodec encHwCaption encHw "
                                    "encPresetCaption encPreset encBitrateCaption (encBitrate suggestButton) "
                                    "encKeyintCaption encKeyint encZeroLatencyCaption encZeroLatency "
                                    "encBFramesCaption encBFrames encAudioCodecCaption encAudioCodec "
                                    "encAudioBitrateCaption encAudioBitrate"_s;
    QTest::newRow("encAdviceCol") << 1 << u"(encAdviceTitle encAdviceFiller detectHwButton)"_s;
    QTest::newRow("outputsColumn")
        << 2
        << u"outputsHeading outputRow outputRow outputRow outputsRule rtmpHeading (rtmpUrl addRtmpButton) "
           u"srtRule "
           "srtHeading (srtScenarioCaption srtScenario) (srtUrlCaption srtUrl srtLatencyCaption srtLatency "
           "srtPassCaption srtPass srtStreamidCaption srtStreamid srtOheadbwCaption srtOheadbw "
           "srtMaxbwCaption "
           "srtMaxbw) streamidHint addSrtButton srtlaRule srtlaHeading (srtlaHost srtlaPort addSrtlaButton) "
           "clearOutputsButton"_s;
    QTest::newRow("outputRowLayout") << 2 << u"outputIcon outputUrl outputSwitch outputDelete"_s;
    QTest::newRow("previewColumn")
        << 3
        << u"previewHeading previewBox (refreshPreviewButton previewFiller startButton "
           "stopButton removePipelineButton)"_s;
}

void tst_WindowLookEditor::orderOfItems()
{
    QFETCH(const int, tab);
    QFETCH(const QString, expected);
    m_ui->openTab(tab);
    QCOMPARE(outline(m_ui->item(QString::fromUtf8(QTest::currentDataTag()))), expected);
}

void tst_WindowLookEditor::boxesAreAsHighAsTheirContent()
{
    m_ui->openTab(1);
    const QQuickItem *advice = m_ui->item(u"encAdviceBox"_s);
    QTRY_COMPARE(advice->height(), m_ui->item(u"encAdviceCol"_s)->implicitHeight() + 20);

    m_ui->openTab(2);
    QTRY_COMPARE(m_ui->item(u"outputRow"_s)->height(), 40.0);
    QCOMPARE(m_ui->item(u"outputRow"_s)->width(), m_ui->item(u"outputsColumn"_s)->width());

    m_ui->addPipeline(); // whose command takes few lines in any font
    m_ui->openTab(3);
    const QQuickItem *box = m_ui->item(u"previewBox"_s);
    const QQuickItem *text = m_ui->item(u"previewText"_s);
    QVERIFY(text->implicitHeight() + 24 < 120);
    QTRY_COMPARE(box->height(), 120.0);
    QCOMPARE(text->width(), box->width() - 16);

    m_ui->engine().addRtmpOutput(m_ui->selectedId(), "rtmp://host/"_L1 + QString(4000, u'k'));
    m_ui->click(u"refreshPreviewButton"_s);
    QTRY_VERIFY(text->implicitHeight() + 24 > 200);
    QTRY_COMPARE(box->height(), text->implicitHeight() + 24);
}

CORVANE_TEST(tst_WindowLookEditor, corvane::test::WindowApplication)
#include "tst_WindowLookEditor.moc"
