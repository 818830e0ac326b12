#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The window without a mouse and for a screen reader: names, the order of the Tab key, visible focus.
class tst_EditorKeyboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void controlHasAName_data();
    void controlHasAName();
    void everyControlHasAName_data();
    void everyControlHasAName();
    void tabGoesThroughTheWindow_data();
    void tabGoesThroughTheWindow();
    void tabWithoutAPipeline();
    void backTabGoesTheSameWay();
    void focusIsSeen_data();
    void focusIsSeen();
    void mouseNeedsNoFrame();
    void focusStaysInSight_data();
    void focusStaysInSight();
    void keysActOnTheFocusedButton_data();
    void keysActOnTheFocusedButton();
    void keysOperateTabsAndChoices();
    void arrowsSelectInTheList();

private:
    std::unique_ptr<EditorBench> m_ui;
    QString m_id;
};

namespace {

/// The order of the Tab key in the window round the editor, before and after the open page.
const QStringList before{u"updateBtn"_s,  u"aboutButton"_s,  u"startAllButton"_s,
                         u"addButton"_s,  u"pipelineList"_s, u"tabFonte"_s,
                         u"tabEncoder"_s, u"tabSaídas"_s,    u"tabPreview"_s};
const QStringList after{u"clearLogButton"_s, u"logArea"_s};

/// The controls of the pages, in reading order.
const QList<QStringList> pages{
    {u"srcKind"_s, u"srcUriField"_s, u"danteField"_s, u"resW"_s, u"resH"_s, u"fpsPicker"_s},
    {u"detectHwButton"_s, u"encCodec"_s, u"encHw"_s, u"encPreset"_s, u"encBitrate"_s, u"suggestButton"_s,
     u"encKeyint"_s, u"encZeroLatency"_s, u"encBFrames"_s, u"encAudioCodec"_s, u"encAudioBitrate"_s},
    {u"outputSwitch"_s, u"outputDelete"_s, u"rtmpUrl"_s, u"addRtmpButton"_s, u"srtScenario"_s, u"srtUrl"_s,
     u"srtLatency"_s, u"srtPass"_s, u"srtStreamid"_s, u"srtOheadbw"_s, u"srtMaxbw"_s, u"addSrtButton"_s,
     u"srtlaHost"_s, u"srtlaPort"_s, u"addSrtlaButton"_s, u"clearOutputsButton"_s},
    {u"previewText"_s, u"refreshPreviewButton"_s, u"startButton"_s, u"stopButton"_s,
     u"removePipelineButton"_s},
};

bool isControl(const QQuickItem *item)
{
    for (const char *type :
         {"QQuickAbstractButton", "QQuickComboBox", "QQuickSpinBox", "QQuickTextField", "QQuickTextArea"}) {
        if (item->inherits(type))
            return true;
    }
    return item->inherits("QQuickListView") && item->activeFocusOnTab();
}

/// The visible controls below an item; parts of controls are none.
void collectControls(QQuickItem *below, QList<QQuickItem *> &found)
{
    if (!below->isVisible())
        return;
    if (isControl(below)) {
        found << below;
        if (!below->inherits("QQuickListView"))
            return;
    }
    const QList<QQuickItem *> children = below->childItems();
    for (QQuickItem *child : children)
        collectControls(child, found);
}

} // namespace

void tst_EditorKeyboard::initTestCase()
{
    m_ui.reset();
    m_ui = std::make_unique<EditorBench>();
    m_id = m_ui->addUnusual();
    m_ui->engine().addRtmpOutput(m_id, u"rtmp://a"_s);
    m_ui->select(m_ui->addPipeline());
    m_ui->select(m_id);
}

void tst_EditorKeyboard::init()
{
    m_ui->openTab(0);
    m_ui->settle();
}

void tst_EditorKeyboard::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
}

void tst_EditorKeyboard::controlHasAName_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("control");
    QTest::addColumn<QString>("name");

    const auto row = [](int page, const char *control, const QString &name) {
        QTest::newRow(control) << page << QString::fromUtf8(control) << name;
    };
    row(0, "updateBtn", u"Verificar update"_s);
    row(0, "aboutButton", u"Sobre"_s);
    row(0, "startAllButton", u"Iniciar todas as streams"_s);
    row(0, "addButton", u"Nova stream"_s);
    row(0, "pipelineList", u"Streams"_s);
    row(0, "tabFonte", u"Fonte"_s);
    row(0, "tabEncoder", u"Encoder"_s);
    row(0, "tabSaídas", u"Saídas"_s);
    row(0, "tabPreview", u"Preview"_s);
    row(0, "srcKind", u"Tipo de fonte"_s);
    row(0, "srcUriField", u"URI / fonte"_s);
    row(0, "danteField", u"Áudio Dante (DVS)"_s);
    row(0, "resW", u"Largura em pixels"_s);
    row(0, "resH", u"Altura em pixels"_s);
    row(0, "fpsPicker", u"FPS"_s);
    row(0, "clearLogButton", u"Limpar log"_s);
    row(0, "logArea", u"Log"_s);
    row(1, "detectHwButton", u"Detectar HW"_s);
    row(1, "encCodec", u"Codec video"_s);
    row(1, "encHw", u"Aceleracao HW"_s);
    row(1, "encPreset", u"Preset"_s);
    row(1, "encBitrate", u"Bitrate (kbps)"_s);
    row(1, "suggestButton", u"Sugerir bitrate"_s);
    row(1, "encKeyint", u"Keyframe (s)"_s);
    row(1, "encZeroLatency", u"Zero latency"_s);
    row(1, "encBFrames", u"B-frames"_s);
    row(1, "encAudioCodec", u"Codec audio"_s);
    row(1, "encAudioBitrate", u"Bitrate audio (kbps)"_s);
    row(2, "outputSwitch", u"Saída ativa: rtmp://a"_s);
    row(2, "outputDelete", u"Remover: rtmp://a"_s);
    row(2, "rtmpUrl", u"URL RTMP"_s);
    row(2, "addRtmpButton", u"Adicionar saída RTMP"_s);
    row(2, "srtScenario", u"Cenário"_s);
    row(2, "srtUrl", u"URL SRT"_s);
    row(2, "srtLatency", u"Latência (ms)"_s);
    row(2, "srtPass", u"Passphrase"_s);
    row(2, "srtStreamid", u"streamid"_s);
    row(2, "srtOheadbw", u"oheadbw (%)"_s);
    row(2, "srtMaxbw", u"maxbw (bps, 0=auto)"_s);
    row(2, "addSrtButton", u"Adicionar saída SRT"_s);
    row(2, "srtlaHost", u"Host do receptor de bonding"_s);
    row(2, "srtlaPort", u"Porta do receptor de bonding"_s);
    row(2, "addSrtlaButton", u"Adicionar saída de bonding"_s);
    row(2, "clearOutputsButton", u"Limpar todas as saídas"_s);
    row(3, "previewText", u"Comando ffmpeg"_s);
    row(3, "refreshPreviewButton", u"Atualizar preview"_s);
    row(3, "startButton", u"Iniciar stream"_s);
    row(3, "stopButton", u"Parar stream"_s);
    row(3, "removePipelineButton", u"Remover pipeline"_s);
}

void tst_EditorKeyboard::controlHasAName()
{
    QFETCH(int, page);
    QFETCH(QString, control);

    m_ui->openTab(page);
    QVERIFY(m_ui->isShown(control));
    QTEST(EditorBench::spokenName(m_ui->item(control)), "name");
}

void tst_EditorKeyboard::everyControlHasAName_data()
{
    QTest::addColumn<int>("page");
    for (int page = 0; page < 4; ++page)
        QTest::addRow("page %d", page) << page;
}

void tst_EditorKeyboard::everyControlHasAName()
{
    QFETCH(int, page);

    // Control: the tables of this test leave out no control of the window.
    m_ui->openTab(page);
    const QStringList expected = before + pages.at(page) + after;
    QList<QQuickItem *> controls;
    collectControls(m_ui->window().contentItem(), controls);
    QStringList names;
    for (QQuickItem *control : std::as_const(controls)) {
        QVERIFY2(!EditorBench::spokenName(control).isEmpty(), qPrintable(control->objectName()));
        names << control->objectName();
    }
    names.sort();
    QStringList sorted = expected;
    sorted.sort();
    QCOMPARE(names, sorted);
}

void tst_EditorKeyboard::tabGoesThroughTheWindow_data()
{
    everyControlHasAName_data();
}

void tst_EditorKeyboard::tabGoesThroughTheWindow()
{
    QFETCH(int, page);

    m_ui->openTab(page);
    m_ui->focusByTab(before.first());
    const QStringList expected = before + pages.at(page) + after;
    QStringList way;
    for (qsizetype i = 0; i < expected.size(); ++i) {
        way << m_ui->focused();
        m_ui->press(Qt::Key_Tab);
    }
    QCOMPARE(way, expected);
    QCOMPARE(m_ui->focused(), before.first()); // and round again
}

void tst_EditorKeyboard::tabWithoutAPipeline()
{
    m_ui.reset();
    m_ui = std::make_unique<EditorBench>();
    const QStringList expected{u"updateBtn"_s,      u"aboutButton"_s,    u"addButton"_s,
                               u"emptyAddButton"_s, u"clearLogButton"_s, u"logArea"_s};
    m_ui->focusByTab(expected.first());
    QStringList way;
    for (qsizetype i = 0; i < expected.size(); ++i) {
        way << m_ui->focused();
        QVERIFY2(!EditorBench::spokenName(m_ui->item(m_ui->focused())).isEmpty(),
                 qPrintable(m_ui->focused()));
        m_ui->press(Qt::Key_Tab);
    }
    QCOMPARE(way, expected);

    // The large "+" adds a pipeline by keyboard, and the editor opens.
    m_ui->focusByTab(u"emptyAddButton"_s);
    m_ui->press(Qt::Key_Space);
    QVERIFY(m_ui->isShown(u"editor"_s));
    QCOMPARE(m_ui->warnings(), QStringList());
    initTestCase(); // the window of the other functions
}

void tst_EditorKeyboard::backTabGoesTheSameWay()
{
    m_ui->openTab(2);
    m_ui->focusByTab(u"tabPreview"_s);
    const QStringList &expected = pages.at(2);
    for (qsizetype i = 0; i <= expected.size(); ++i)
        m_ui->press(Qt::Key_Tab);
    QCOMPARE(m_ui->focused(), u"clearLogButton"_s);
    QStringList way;
    for (qsizetype i = 0; i < expected.size(); ++i) {
        m_ui->press(Qt::Key_Backtab, Qt::ShiftModifier);
        way.prepend(m_ui->focused());
    }
    QCOMPARE(way, expected);
}

void tst_EditorKeyboard::focusIsSeen_data()
{
    everyControlHasAName_data();
}

void tst_EditorKeyboard::focusIsSeen()
{
    QFETCH(int, page);

    // A text area has no focus style of its own, nor has a list; a frame shows the focus there.
    const QHash<QString, QString> frames{
        {u"pipelineList"_s, u"pipelineListFocus"_s},
        {u"previewText"_s, u"previewFocus"_s},
        {u"logArea"_s, u"logFocus"_s},
    };
    m_ui->openTab(page);
    m_ui->focusByTab(before.first());
    const QStringList way = before + pages.at(page) + after;
    for (const QString &name : way) {
        QCOMPARE(m_ui->focused(), name);
        const QQuickItem *control = m_ui->item(name);
        QVERIFY2(control->hasActiveFocus(), qPrintable(name));
        if (frames.contains(name)) {
            QVERIFY2(m_ui->isShown(frames.value(name)), qPrintable(name));
            QVERIFY(m_ui->item(frames.value(name))->width() > 0);
        } else if (control->inherits("QQuickTextField")) {
            QVERIFY2(m_ui->showsFocus(name), qPrintable(name));
            QCOMPARE(m_ui->value(name, u"cursorVisible"_s), QVariant(true));
        } else {
            QVERIFY2(m_ui->value(name, u"visualFocus"_s).toBool(), qPrintable(name));
        }
        m_ui->press(Qt::Key_Tab);
        if (frames.contains(name))
            QVERIFY2(!m_ui->isShown(frames.value(name)), qPrintable(name));
    }
}

void tst_EditorKeyboard::mouseNeedsNoFrame()
{
    m_ui->click(u"logArea"_s);
    QCOMPARE(m_ui->focused(), u"logArea"_s);
    QVERIFY(!m_ui->isShown(u"logFocus"_s));

    m_ui->openTab(3);
    m_ui->click(u"previewText"_s);
    QCOMPARE(m_ui->focused(), u"previewText"_s);
    QVERIFY(!m_ui->isShown(u"previewFocus"_s));

    // A row takes the focus for its stop button and for its name's field.
    m_ui->doubleClick(m_ui->item(u"nameLabel"_s, m_ui->row(0)));
    QTRY_COMPARE(m_ui->focused(), u"renameField"_s);
    QVERIFY(!m_ui->isShown(u"pipelineListFocus"_s));
    m_ui->press(Qt::Key_Escape);
    m_ui->focusByTab(u"addButton"_s);
    m_ui->focusByTab(u"pipelineList"_s);
    QVERIFY(m_ui->isShown(u"pipelineListFocus"_s));
    m_ui->select(m_id);
}

void tst_EditorKeyboard::focusStaysInSight_data()
{
    everyControlHasAName_data();
}

void tst_EditorKeyboard::focusStaysInSight()
{
    QFETCH(int, page);

    m_ui->window().resize(1024, 640);
    m_ui->openTab(page);
    m_ui->settle();
    m_ui->focusByTab(u"tabPreview"_s);
    const QQuickItem *view = m_ui->item(u"pages"_s);
    for (const bool forward : {true, false}) {
        for (const QString &name : pages.at(page)) {
            Q_UNUSED(name);
            m_ui->press(forward ? Qt::Key_Tab : Qt::Key_Backtab,
                        forward ? Qt::NoModifier : Qt::ShiftModifier);
            const QQuickItem *control = m_ui->item(m_ui->focused());
            QVERIFY(pages.at(page).contains(m_ui->focused()));
            const QRectF place =
                control->mapRectToItem(view, QRectF(0, 0, control->width(), control->height()));
            QVERIFY2(place.top() >= 0 && place.bottom() <= view->height(),
                     qPrintable(u"%1: %2 to %3 of %4"_s.arg(m_ui->focused())
                                    .arg(place.top())
                                    .arg(place.bottom())
                                    .arg(view->height())));
        }
        m_ui->press(Qt::Key_Tab); // on to the next control, for the way back
    }
    m_ui->window().resize(1280, 820);
}

void tst_EditorKeyboard::keysActOnTheFocusedButton_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("button");
    QTest::addColumn<int>("key");

    QTest::newRow("add a pipeline") << 0 << u"addButton"_s << int(Qt::Key_Space);
    QTest::newRow("add an output") << 2 << u"addRtmpButton"_s << int(Qt::Key_Space);
    QTest::newRow("detect") << 1 << u"detectHwButton"_s << int(Qt::Key_Space);
    QTest::newRow("switch") << 1 << u"encBFrames"_s << int(Qt::Key_Space);
    QTest::newRow("refresh the preview") << 3 << u"refreshPreviewButton"_s << int(Qt::Key_Space);
    QTest::newRow("add a pipeline with Return") << 0 << u"addButton"_s << int(Qt::Key_Return);
    QTest::newRow("add an output with Enter") << 2 << u"addRtmpButton"_s << int(Qt::Key_Enter);
}

void tst_EditorKeyboard::keysActOnTheFocusedButton()
{
    QFETCH(int, page);
    QFETCH(QString, button);
    QFETCH(int, key);

    m_ui->openTab(page);
    m_ui->item(u"rtmpUrl"_s)->setProperty("text", u"rtmp://by-key"_s);
    QSignalSpy clicked(m_ui->item(button), SIGNAL(clicked()));
    m_ui->focusByTab(button);
    m_ui->press(Qt::Key(key));
    QCOMPARE(clicked.count(), 1);
    m_ui->select(m_id);
}

void tst_EditorKeyboard::keysOperateTabsAndChoices()
{
    m_ui->focusByTab(u"tabEncoder"_s);
    m_ui->press(Qt::Key_Space);
    QVERIFY(m_ui->isShown(u"encoderPage"_s));

    RecordWatch record(*m_ui, m_id);
    m_ui->focusByTab(u"encPreset"_s);
    m_ui->press(Qt::Key_Down);
    QCOMPARE(m_ui->value(u"encPreset"_s, u"currentText"_s).toString(), u"ultrafast"_s);
    QCOMPARE(record.changes(), QStringList({u"encoder.preset 1"_s}));

    m_ui->focusByTab(u"encBitrate"_s);
    m_ui->press(Qt::Key_Up);
    QCOMPARE(record.changes(), QStringList({u"encoder.preset 1"_s, u"encoder.bitrate 6500"_s}));
}

void tst_EditorKeyboard::arrowsSelectInTheList()
{
    QStringList ids;
    const QVariantList rows = m_ui->engine().pipelines();
    for (const QVariant &row : rows)
        ids << row.toMap().value(u"id"_s).toString();
    QVERIFY(ids.size() >= 2);

    m_ui->select(ids.at(0));
    m_ui->focusByTab(u"pipelineList"_s);
    m_ui->awaitRows(); // those that former edits have left due
    m_ui->press(Qt::Key_Down);
    QCOMPARE(m_ui->selectedId(), ids.at(1));
    m_ui->press(Qt::Key_Up);
    QCOMPARE(m_ui->selectedId(), ids.at(0));
    m_ui->press(Qt::Key_Up); // the first stays the first
    QCOMPARE(m_ui->selectedId(), ids.at(0));
    for (qsizetype i = 0; i < ids.size(); ++i)
        m_ui->press(Qt::Key_Down);
    QCOMPARE(m_ui->selectedId(), ids.last());

    // A refresh of the rows leaves the focus where it is.
    m_ui->engine().configureSource(m_id, {});
    m_ui->settle();
    QCOMPARE(m_ui->focused(), u"pipelineList"_s);
    m_ui->select(m_id);
}

CORVANE_TEST(tst_EditorKeyboard, corvane::test::WindowApplication)
#include "tst_EditorKeyboard.moc"
