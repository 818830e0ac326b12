#include "tests/support/Runner.h"
#include "tests/ui/LookTable.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The editor's page of outputs as it stands on the screen, with one output of each kind.
class tst_WindowLookOutputs : public LookTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { openWithOutputs(); }

    void outputsPage_data();
    void outputsPage() { compareLook(*m_ui); }
    void outputRows_data();
    void outputRows() { compareLook(*m_ui); }
    void rules_data();
    void rules();
};

void tst_WindowLookOutputs::outputsPage_data()
{
    addLooks({
        {"outputsColumn", "spacing", "12"},
        {"noOutputsLabel", "text", "Nenhuma saída configurada"},
        {"noOutputsLabel", "color", "#5e5e66"},
        {"noOutputsLabel", "font.pixelSize", "12"},
        {"noOutputsLabel", "Layout.alignment", "AlignHCenter"},
        {"noOutputsLabel", "Layout.topMargin", "16"},
        {"rtmpRow", "spacing", "8"},
        {"rtmpUrl", "Layout.fillWidth", "true"},
        {"rtmpUrl", "placeholderText", "rtmp://a.rtmp.youtube.com/live2/KEY"},
        {"addRtmpButton", "text", "+ RTMP"},
        {"addRtmpButton", "flat", "false"},
        {"addRtmpButton", "Material.background", "#2e2e34"},
        {"srtScenarioRow", "spacing", "8"},
        {"srtScenario", "Layout.fillWidth", "true"},
        {"srtScenario", "model",
         "(manual) | Estúdio LAN | Internet Fibra | IRL 4G/5G | Bonding srtla | Relay"},
        {"srtScenario", "currentIndex", "0"},
        {"srtGrid", "columns", "2"},
        {"srtGrid", "columnSpacing", "16"},
        {"srtGrid", "rowSpacing", "8"},
        {"srtGrid", "Layout.fillWidth", "true"},
        {"srtUrl", "placeholderText", "srt://host:9000"},
        {"srtUrl", "Layout.fillWidth", "true"},
        {"srtLatency", "from", "20"},
        {"srtLatency", "to", "8000"},
        {"srtLatency", "stepSize", "10"},
        {"srtLatency", "value", "120"},
        {"srtLatency", "editable", "true"},
        {"srtPass", "placeholderText", "(opcional)"},
        {"srtPass", "echoMode", "Password"},
        {"srtPass", "Layout.fillWidth", "true"},
        {"srtStreamid", "placeholderText", "literal, não URL-encoded"},
        {"srtStreamid", "Layout.fillWidth", "true"},
        {"srtOheadbw", "from", "0"},
        {"srtOheadbw", "to", "100"},
        {"srtOheadbw", "value", "25"},
        {"srtOheadbw", "editable", "true"},
        {"srtMaxbw", "from", "0"},
        {"srtMaxbw", "to", "100000000"},
        {"srtMaxbw", "stepSize", "100000"},
        {"srtMaxbw", "value", "0"},
        {"srtMaxbw", "editable", "true"},
        {"streamidHint", "text", "streamid deve ser literal, não URL-encoded (lição HALVORNNIMBLE)"},
        {"streamidHint", "font.pixelSize", "10"},
        {"streamidHint", "font.italic", "true"},
        {"streamidHint", "color", "#5e5e66"},
        {"addSrtButton", "text", "+ SRT"},
        {"addSrtButton", "flat", "false"},
        {"addSrtButton", "Material.background", "#2e2e34"},
        {"srtlaRow", "spacing", "8"},
        {"srtlaHost", "Layout.fillWidth", "true"},
        {"srtlaHost", "placeholderText", "receptor Nimble (host)"},
        {"srtlaPort", "from", "1"},
        {"srtlaPort", "to", "65535"},
        {"srtlaPort", "value", "5000"},
        {"srtlaPort", "editable", "true"},
        {"addSrtlaButton", "text", "+ srtla"},
        {"addSrtlaButton", "flat", "false"},
        {"addSrtlaButton", "Material.background", "#2e2e34"},
        {"clearOutputsButton", "flat", "true"},
        {"clearOutputsButton", "text", "Limpar todas as saídas"},
        {"clearOutputsButton", "Material.foreground", "#e05555"},
        {"clearOutputsButton", "Layout.topMargin", "8"},
    });
}

void tst_WindowLookOutputs::outputRows_data()
{
    addLooks({
        {"outputRow[0]", "Layout.fillWidth", "true"},
        {"outputRow[0]", "Layout.preferredHeight", "40"},
        {"outputRow[0]", "radius", "6"},
        {"outputRow[0]", "color", "#2e2e34"},
        {"outputRow[0]", "confirmDelete", "false"},
        {"outputRow[0]/delConfirmTimer", "interval", "2000"},
        {"outputRow[0]/delConfirmTimer", "repeat", "false"},
        {"outputRow[0]/outputRowLayout", "anchors.leftMargin", "12"},
        {"outputRow[0]/outputRowLayout", "anchors.rightMargin", "8"},
        {"outputRow[0]/outputRowLayout", "spacing", "8"},
        {"outputRow[0]/outputIcon", "text", "📡"},
        {"outputRow[0]/outputIcon", "font.pixelSize", "14"},
        {"outputRow[1]/outputIcon", "text", "🌐"},
        {"outputRow[2]/outputIcon", "text", "🔗"},
        {"outputRow[0]/outputUrl", "text", "rtmp://host/live/key"},
        {"outputRow[0]/outputUrl", "elide", "ElideMiddle"},
        {"outputRow[0]/outputUrl", "Layout.fillWidth", "true"},
        {"outputRow[0]/outputUrl", "color", "#e8e8ec"},
        {"outputRow[0]/outputUrl", "font.pixelSize", "12"},
        {"outputRow[0]/outputUrl", "font.family", "#000000"},
        {"outputRow[1]/outputUrl", "text", "srt://host:9000"},
        {"outputRow[2]/outputUrl", "text", "receiver:5000"},
        {"outputRow[0]/outputSwitch", "checked", "true"},
        {"outputRow[1]/outputSwitch", "checked", "false"},
        {"outputRow[2]/outputSwitch", "checked", "true"},
        {"outputRow[0]/outputDelete", "flat", "true"},
        {"outputRow[0]/outputDelete", "text", "✗"},
        {"outputRow[0]/outputDelete", "font.pixelSize", "14"},
        {"outputRow[0]/outputDelete", "Material.foreground", "#e05555"},
        {"outputRow[0]/outputDelete", "implicitWidth", "32"},
        {"outputRow[0]/outputDelete", "implicitHeight", "32"},
        {"outputRow[0]/outputDelete", "ToolTip.text", "Remover"},
    });
}

void tst_WindowLookOutputs::rules_data()
{
    QTest::addColumn<QString>("topMargin");

    QTest::newRow("outputsRule") << u"8"_s;
    QTest::newRow("srtRule") << u"0"_s;
    QTest::newRow("srtlaRule") << u"0"_s;
}

void tst_WindowLookOutputs::rules()
{
    QFETCH(const QString, topMargin);
    m_ui->openTab(2);
    QQuickItem *rule = m_ui->item(QString::fromUtf8(QTest::currentDataTag()));
    QVERIFY(rule);
    QTRY_COMPARE(rule->height(), 1.0);
    QCOMPARE(rule->width(), m_ui->item(u"outputsColumn"_s)->width());
    QCOMPARE(lookText(rule, u"color"_s), u"#2e2e34"_s);
    QCOMPARE(lookText(rule, u"Layout.topMargin"_s), topMargin);
}

CORVANE_TEST(tst_WindowLookOutputs, corvane::test::WindowApplication)
#include "tst_WindowLookOutputs.moc"
