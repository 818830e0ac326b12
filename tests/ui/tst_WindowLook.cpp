#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/ui/LookTable.h"

#include <QColor>
#include <QMetaProperty>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The frame round the editor as it stands on the screen: two rows, the first of them on air, the second
/// selected.
class tst_WindowLook : public LookTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void theme_data();
    void theme();
    void themeHasNothingElse();
    void window_data();
    void window() { compareLook(*m_ui); }
    void toolbar_data();
    void toolbar() { compareLook(*m_ui); }
    void sidebar_data();
    void sidebar() { compareLook(*m_ui); }
    void rows_data();
    void rows() { compareLook(*m_ui); }
    void centreAndLog_data();
    void centreAndLog() { compareLook(*m_ui); }
    void orderOfItems_data();
    void orderOfItems();
    void tabsAreAsWideAsTheirWords();
    void placesOnTheWindow_data();
    void placesOnTheWindow();
    void chipsAreCentredVertically();
    void rowsAreAsHighAsTheirContent();
    void emptyStateIsCentred();

private:
    [[nodiscard]] QRectF placeOf(const QString &path) const;
};

void tst_WindowLook::initTestCase()
{
    m_ui = std::make_unique<Interface>();
    const QString onAir = m_ui->addPipeline();
    m_ui->engine().addRtmpOutput(onAir, u"fake:progress"_s);
    m_ui->addPipeline();
    m_ui->engine().startPipeline(onAir);
    QTRY_VERIFY(m_ui->item(u"telemetryLine"_s) && m_ui->item(u"telemetryLine"_s)->isVisible());
    m_ui->awaitRows();
    // A layout places its items with the next frame.
    QTRY_VERIFY(m_ui->item(u"rowStopButton"_s)->width() > 0 && m_ui->row(1) && m_ui->row(1)->y() > 0);
}

QRectF tst_WindowLook::placeOf(const QString &path) const
{
    const auto *item = qobject_cast<QQuickItem *>(find(*m_ui, path));
    return item ? item->mapRectToScene(QRectF(0, 0, item->width(), item->height())) : QRectF();
}

// --- Theme

void tst_WindowLook::theme_data()
{
    QTest::addColumn<QString>("value");

    QTest::newRow("bg") << "#1a1a1e";
    QTest::newRow("surface") << "#242428";
    QTest::newRow("surfaceRaised") << "#2e2e34";
    QTest::newRow("accent") << "#4ecdc4";
    QTest::newRow("text") << "#e8e8ec";
    QTest::newRow("muted") << "#8e8e96";
    QTest::newRow("dim") << "#5e5e66";
    QTest::newRow("danger") << "#e05555";
    QTest::newRow("running") << "#4ecdc4";
    QTest::newRow("starting") << "#f0c040";
    // The name of a font is no colour, and an invalid colour reads as black.
    QTest::newRow("mono") << "#000000";
}

void tst_WindowLook::theme()
{
    QFETCH(const QString, value);
    const QObject *theme = m_ui->object(u"theme"_s);
    const QMetaObject *meta = theme->metaObject();
    const QMetaProperty token = meta->property(meta->indexOfProperty(QTest::currentDataTag()));
    QVERIFY(token.isValid());
    QCOMPARE(token.typeId(), int(QMetaType::QColor));
    QVERIFY(!token.isWritable());
    QCOMPARE(token.read(theme).value<QColor>().name(), value);
}

void tst_WindowLook::themeHasNothingElse()
{
    const QMetaObject *meta = m_ui->object(u"theme"_s)->metaObject();
    QStringList tokens;
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i)
        tokens << QString::fromLatin1(meta->property(i).name());
    QCOMPARE(tokens,
             QStringList({u"bg"_s, u"surface"_s, u"surfaceRaised"_s, u"accent"_s, u"text"_s, u"muted"_s,
                          u"dim"_s, u"danger"_s, u"running"_s, u"starting"_s, u"mono"_s}));
}

// --- Tables

void tst_WindowLook::window_data()
{
    addLooks({
        {"win", "width", "1280"},
        {"win", "height", "820"},
        {"win", "visible", "true"},
        {"win", "title", "CORVANE"},
        {"win", "color", "#1a1a1e"},
        {"win", "Material.theme", "Dark"},
        {"win", "Material.accent", "#4ecdc4"},
        {"mainSplit", "orientation", "Vertical"},
        {"upperSplit", "orientation", "Horizontal"},
        {"upperSplit", "SplitView.fillHeight", "true"},
        {"sidebar", "SplitView.preferredWidth", "280"},
        {"sidebar", "SplitView.minimumWidth", "220"},
        {"sidebar", "SplitView.maximumWidth", "400"},
        {"centrePanel", "SplitView.fillWidth", "true"},
        {"logPane", "SplitView.preferredHeight", "160"},
        {"logPane", "SplitView.minimumHeight", "40"},
    });
}

void tst_WindowLook::toolbar_data()
{
    addLooks({
        {"toolBar", "height", "48"},
        {"toolBar", "Material.background", "#242428"},
        {"toolBarLoader", "anchors.leftMargin", "16"},
        {"toolBarLoader", "anchors.rightMargin", "16"},
        {"toolBarRow", "spacing", "12"},
        {"logo", "textFormat", "RichText"},
        {"logo", "text",
         "<span style=\"font-size:17px; font-weight:700; color:#8e8e96\">COR</span>"
         "<span style=\"font-size:17px; font-weight:700; color:#4ecdc4\">VA</span>"
         "<span style=\"font-size:17px; font-weight:700; color:#8e8e96\">NE</span>"},
        {"logoGap", "width", "24"},
        {"chipFfmpeg", "spacing", "4"},
        {"chipFfmpeg/chipDot", "width", "8"},
        {"chipFfmpeg/chipDot", "height", "8"},
        {"chipFfmpeg/chipDot", "radius", "4"},
        {"chipFfmpeg/chipLabel", "text", "ffmpeg"},
        {"chipFfmpeg/chipLabel", "font.pixelSize", "11"},
        {"chipFfmpeg/chipLabel", "color", "#8e8e96"},
        {"chipNdi", "spacing", "4"},
        {"chipNdi/chipDot", "width", "8"},
        {"chipNdi/chipDot", "height", "8"},
        {"chipNdi/chipDot", "radius", "4"},
        {"chipNdi/chipLabel", "text", "NDI"},
        {"chipNdi/chipLabel", "font.pixelSize", "11"},
        {"chipNdi/chipLabel", "color", "#8e8e96"},
        {"chipSrt/chipLabel", "text", "SRT"},
        {"chipSrtla/chipLabel", "text", "srtla"},
        {"chipDecklink/chipLabel", "text", "DeckLink"},
        {"toolBarFiller", "Layout.fillWidth", "true"},
        {"updateBtn", "flat", "true"},
        {"updateBtn", "_state", "0"},
        {"updateBtn", "text", "Verificar update"},
        {"updateBtn", "Material.foreground", "#8e8e96"},
        {"updateRevertTimer", "interval", "3000"},
        {"updateRevertTimer", "repeat", "false"},
        {"aboutButton", "flat", "true"},
        {"aboutButton", "text", "Sobre"},
        {"aboutButton", "Material.foreground", "#8e8e96"},
    });
}

void tst_WindowLook::sidebar_data()
{
    addLooks({
        {"sidebar", "color", "#242428"},
        {"sidebar", "width", "280"},
        {"sidebarColumn", "spacing", "0"},
        {"sidebarHeader", "width", "280"},
        {"sidebarHeader", "height", "52"},
        {"sidebarHeader", "color", "#2e2e34"},
        {"sidebarHeaderRow", "anchors.leftMargin", "14"},
        {"sidebarHeaderRow", "anchors.rightMargin", "14"},
        {"streamsLabel", "text", "Streams"},
        {"streamsLabel", "font.pixelSize", "14"},
        {"streamsLabel", "font.bold", "true"},
        {"streamsLabel", "color", "#e8e8ec"},
        {"streamsLabel", "Layout.fillWidth", "true"},
        {"startAllButton", "flat", "true"},
        {"startAllButton", "text", "▶ Todas"},
        {"startAllButton", "font.pixelSize", "11"},
        {"startAllButton", "Material.foreground", "#4ecdc4"},
        {"stopAllButton", "flat", "true"},
        {"stopAllButton", "text", "■ Parar"},
        {"stopAllButton", "font.pixelSize", "11"},
        {"stopAllButton", "Material.foreground", "#e05555"},
        {"addButton", "flat", "true"},
        {"addButton", "text", "+"},
        {"addButton", "font.pixelSize", "20"},
        {"addButton", "font.bold", "true"},
        {"addButton", "Material.foreground", "#4ecdc4"},
        {"sidebarRule", "width", "280"},
        {"sidebarRule", "height", "1"},
        {"sidebarRule", "color", "#1a1a1e"},
        {"pipelineList", "clip", "true"},
        {"pipelineList", "width", "280"},
    });
}

void tst_WindowLook::rows_data()
{
    addLooks({
        {"pipelineList/plDel[0]", "width", "280"},
        {"pipelineList/plDel[0]", "color", "transparent"},
        {"pipelineList/plDel[1]", "color", "#2e2e34"},
        {"pipelineList/plDel[0]", "confirmingStop", "false"},
        {"pipelineList/plDel[0]", "renaming", "false"},
        {"pipelineList/plDel[0]/confirmStopTimer", "interval", "3000"},
        {"pipelineList/plDel[0]/confirmStopTimer", "repeat", "false"},
        {"pipelineList/plDel[0]/rowArea", "width", "280"},
        {"pipelineList/plDel[0]/plCol", "anchors.margins", "10"},
        {"pipelineList/plDel[0]/plCol", "spacing", "8"},
        {"pipelineList/plDel[0]/plCol", "x", "10"},
        {"pipelineList/plDel[0]/plCol", "y", "10"},
        {"pipelineList/plDel[0]/plCol", "width", "260"},
        {"pipelineList/plDel[0]/statusDot", "width", "10"},
        {"pipelineList/plDel[0]/statusDot", "height", "10"},
        {"pipelineList/plDel[0]/statusDot", "radius", "5"},
        {"pipelineList/plDel[0]/statusDot", "y", "4"},
        {"pipelineList/plDel[0]/statusDot", "Layout.alignment", "AlignTop"},
        {"pipelineList/plDel[0]/statusDot", "Layout.topMargin", "4"},
        {"pipelineList/plDel[0]/rowColumn", "spacing", "2"},
        {"pipelineList/plDel[0]/rowColumn", "Layout.fillWidth", "true"},
        {"pipelineList/plDel[0]/nameLabel", "font.pixelSize", "13"},
        {"pipelineList/plDel[0]/nameLabel", "font.bold", "true"},
        {"pipelineList/plDel[0]/nameLabel", "color", "#e8e8ec"},
        {"pipelineList/plDel[0]/nameLabel", "elide", "ElideRight"},
        {"pipelineList/plDel[0]/nameLabel", "textFormat", "PlainText"},
        {"pipelineList/plDel[0]/statusLine", "text", "running · 1 saída(s)"},
        {"pipelineList/plDel[0]/statusLine", "font.pixelSize", "11"},
        {"pipelineList/plDel[0]/statusLine", "color", "#8e8e96"},
        {"pipelineList/plDel[0]/telemetryLine", "font.family", "#000000"},
        {"pipelineList/plDel[0]/telemetryLine", "font.pixelSize", "10"},
        {"pipelineList/plDel[0]/telemetryLine", "color", "#4ecdc4"},
        {"pipelineList/plDel[0]/rowStopButton", "flat", "true"},
        {"pipelineList/plDel[0]/rowStopButton", "text", "■"},
        {"pipelineList/plDel[0]/rowStopButton", "font.pixelSize", "14"},
        {"pipelineList/plDel[0]/rowStopButton", "implicitWidth", "32"},
        {"pipelineList/plDel[0]/rowStopButton", "implicitHeight", "28"},
        {"pipelineList/plDel[0]/rowStopButton", "Material.foreground", "#e05555"},
        {"pipelineList/plDel[0]/rowRule", "width", "280"},
        {"pipelineList/plDel[0]/rowRule", "height", "1"},
        {"pipelineList/plDel[0]/rowRule", "color", "#1a1a1e"},
    });
}

void tst_WindowLook::centreAndLog_data()
{
    addLooks({
        {"centrePanel", "color", "#1a1a1e"},
        {"emptyState", "spacing", "16"},
        {"emptyLabel", "text", "Crie uma nova stream para começar"},
        {"emptyLabel", "font.pixelSize", "16"},
        {"emptyLabel", "color", "#8e8e96"},
        {"emptyLabel", "Layout.alignment", "AlignHCenter"},
        {"emptyAddButton", "flat", "true"},
        {"emptyAddButton", "text", "+"},
        {"emptyAddButton", "font.pixelSize", "48"},
        {"emptyAddButton", "Material.foreground", "#4ecdc4"},
        {"emptyAddButton", "Layout.alignment", "AlignHCenter"},
        {"editor", "spacing", "0"},
        {"tabBar", "Material.background", "#242428"},
        {"tabBar", "Layout.fillWidth", "true"},
        {"tabFonte", "text", "Fonte"},
        {"tabEncoder", "text", "Encoder"},
        {"tabSaídas", "text", "Saídas"},
        {"tabPreview", "text", "Preview"},
        {"tabRule", "height", "1"},
        {"tabRule", "color", "#2e2e34"},
        {"tabRule", "Layout.fillWidth", "true"},
        {"logPane", "color", "#1a1a1e"},
        {"logPane", "height", "160"},
        {"logColumn", "spacing", "0"},
        {"logHeader", "height", "28"},
        {"logHeader", "color", "#242428"},
        {"logHeaderRow", "anchors.leftMargin", "12"},
        {"logHeaderRow", "anchors.rightMargin", "12"},
        {"logLabel", "text", "Log"},
        {"logLabel", "font.pixelSize", "12"},
        {"logLabel", "font.bold", "true"},
        {"logLabel", "color", "#8e8e96"},
        {"logLabel", "Layout.fillWidth", "true"},
        {"clearLogButton", "flat", "true"},
        {"clearLogButton", "text", "Limpar"},
        {"clearLogButton", "font.pixelSize", "10"},
        {"clearLogButton", "implicitHeight", "24"},
        {"clearLogButton", "Material.foreground", "#5e5e66"},
        {"logArea", "readOnly", "true"},
        {"logArea", "font.family", "#000000"},
        {"logArea", "font.pixelSize", "11"},
        {"logArea", "color", "#8e8e96"},
        {"logArea", "textFormat", "PlainText"},
        {"logBackground", "color", "#1a1a1e"},
    });
}

// --- Order and place

void tst_WindowLook::orderOfItems_data()
{
    QTest::addColumn<QString>("expected");

    QTest::newRow("toolBarRow")
        << u"logo logoGap (chipDot chipLabel) (chipDot chipLabel) (chipDot chipLabel) "
           "(chipDot chipLabel) (chipDot chipLabel) toolBarFiller updateBtn aboutButton"_s;
    QTest::newRow("sidebarHeaderRow") << u"streamsLabel startAllButton stopAllButton addButton"_s;
    QTest::newRow("sidebarColumn") << u"sidebarHeader sidebarRule pipelineList"_s;
    QTest::newRow("plCol") << u"statusDot (nameLabel statusLine telemetryLine) rowStopLoader"_s;
    QTest::newRow("pipelineList/plDel[1]/plCol") << u"statusDot (nameLabel statusLine)"_s;
    QTest::newRow("editor") << u"tabBar tabRule (sourcePage)"_s;
    QTest::newRow("logColumn") << u"logHeader logScroll"_s;
    QTest::newRow("logHeaderRow") << u"logLabel clearLogButton"_s;
}

void tst_WindowLook::orderOfItems()
{
    QFETCH(const QString, expected);
    const auto *layout = qobject_cast<QQuickItem *>(find(*m_ui, QString::fromUtf8(QTest::currentDataTag())));
    QVERIFY(layout);
    QCOMPARE(outline(layout), expected);
}

void tst_WindowLook::tabsAreAsWideAsTheirWords()
{
    double together = 0;
    for (const QString &name : {u"tabFonte"_s, u"tabEncoder"_s, u"tabSaídas"_s, u"tabPreview"_s}) {
        const QQuickItem *tab = m_ui->item(name);
        QVERIFY(tab);
        QCOMPARE(tab->width(), tab->implicitWidth());
        QVERIFY(tab->width() > 0);
        together += tab->width();
    }
    QCOMPARE_LT(together, m_ui->item(u"tabBar"_s)->width() / 2); // the bar would divide itself between them
}

void tst_WindowLook::placesOnTheWindow_data()
{
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");
    QTest::addColumn<bool>("below");

    QTest::newRow("chips by the order of the tools: NDI") << u"chipFfmpeg"_s << u"chipNdi"_s << false;
    QTest::newRow("chips by the order of the tools: SRT") << u"chipNdi"_s << u"chipSrt"_s << false;
    QTest::newRow("chips by the order of the tools: srtla") << u"chipSrt"_s << u"chipSrtla"_s << false;
    QTest::newRow("chips by the order of the tools: DeckLink")
        << u"chipSrtla"_s << u"chipDecklink"_s << false;
    QTest::newRow("the editor beside the sidebar") << u"sidebar"_s << u"centrePanel"_s << false;
    QTest::newRow("tab Encoder after Fonte") << u"tabFonte"_s << u"tabEncoder"_s << false;
    QTest::newRow("tab Saídas after Encoder") << u"tabEncoder"_s << u"tabSaídas"_s << false;
    QTest::newRow("tab Preview after Saídas") << u"tabSaídas"_s << u"tabPreview"_s << false;
    QTest::newRow("the sidebar below the toolbar") << u"toolBar"_s << u"sidebar"_s << true;
    QTest::newRow("the list below its header") << u"sidebarHeader"_s << u"pipelineList"_s << true;
    QTest::newRow("the log below the sidebar") << u"sidebar"_s << u"logPane"_s << true;
    QTest::newRow("the log below the editor") << u"centrePanel"_s << u"logPane"_s << true;
    QTest::newRow("the log's text below its header") << u"logHeader"_s << u"logScroll"_s << true;
    QTest::newRow("the second row below the first")
        << u"pipelineList/plDel[0]"_s << u"pipelineList/plDel[1]"_s << true;
}

void tst_WindowLook::placesOnTheWindow()
{
    QFETCH(const QString, left);
    QFETCH(const QString, right);
    QFETCH(const bool, below);
    const QRectF first = placeOf(left);
    const QRectF second = placeOf(right);
    QVERIFY(!first.isEmpty() && !second.isEmpty());
    if (below)
        QVERIFY2(first.bottom() <= second.top(), "the second stands higher");
    else
        QVERIFY2(first.right() <= second.left(), "the second stands further left");
}

void tst_WindowLook::chipsAreCentredVertically()
{
    for (const QString &chip :
         {u"chipFfmpeg"_s, u"chipNdi"_s, u"chipSrt"_s, u"chipSrtla"_s, u"chipDecklink"_s}) {
        const qreal dot = placeOf(chip + "/chipDot"_L1).center().y();
        const qreal label = placeOf(chip + "/chipLabel"_L1).center().y();
        QVERIFY2(qAbs(dot - placeOf(chip).center().y()) <= 0.5, qPrintable(chip));
        QVERIFY2(qAbs(label - placeOf(chip).center().y()) <= 0.5, qPrintable(chip));
    }
}

void tst_WindowLook::rowsAreAsHighAsTheirContent()
{
    for (const int index : {0, 1}) {
        const QQuickItem *row = m_ui->row(index);
        const QQuickItem *content = m_ui->item(u"plCol"_s, m_ui->row(index));
        const QQuickItem *rule = m_ui->item(u"rowRule"_s, m_ui->row(index));
        QVERIFY(content->implicitHeight() > 20);
        QCOMPARE(row->height(), content->implicitHeight() + 16);
        QCOMPARE(rule->y(), row->height() - 1);
    }
    const QQuickItem *stop = m_ui->item(u"rowStopButton"_s, m_ui->row(0));
    QCOMPARE(stop->mapToItem(m_ui->item(u"plCol"_s, m_ui->row(0)), QPointF()).y(), 0.0);
}

void tst_WindowLook::emptyStateIsCentred()
{
    const QString selected = m_ui->selectedId();
    m_ui->window().setProperty("selectedId", QString());
    QTRY_COMPARE(outline(m_ui->item(u"emptyState"_s)), u"emptyLabel emptyAddButton"_s);
    QTRY_VERIFY((placeOf(u"emptyState"_s).center() - placeOf(u"centrePanel"_s).center()).manhattanLength() <=
                2);
    m_ui->window().setProperty("selectedId", selected);
    QVERIFY(!m_ui->item(u"emptyState"_s)->isVisible());
}

CORVANE_TEST(tst_WindowLook, corvane::test::WindowApplication)
#include "tst_WindowLook.moc"
