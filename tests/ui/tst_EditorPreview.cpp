#include "tests/support/TestSupport.h"
#include "tests/ui/EditorBench.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The page "Preview": when its text is read, and its buttons.
class tst_EditorPreview : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void textIsReadWhenTheSelectionChanges();
    void refreshEndsTheBinding();
    void textIsPlain();
    void textGrowsTheBox();
    void startAndStop();
    void stopAsksNothing();
    void removeClosesTheEditor();
    void removeWhileOnAir();
    void vanishedPipeline();

private:
    [[nodiscard]] QString shown() const { return m_ui->text(u"previewText"_s); }
    [[nodiscard]] QString state(const QString &id);
    [[nodiscard]] QString addOutput(const QString &url); ///< a new, selected pipeline with this output

    std::unique_ptr<EditorBench> m_ui;
};

void tst_EditorPreview::init()
{
    m_ui = std::make_unique<EditorBench>();
}

void tst_EditorPreview::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
}

QString tst_EditorPreview::state(const QString &id)
{
    const QVariantList rows = m_ui->engine().pipelines();
    for (const QVariant &row : rows) {
        if (row.toMap().value(u"id"_s).toString() == id)
            return row.toMap().value(u"state"_s).toString();
    }
    return u"gone"_s;
}

QString tst_EditorPreview::addOutput(const QString &url)
{
    QString id = m_ui->addPipeline();
    m_ui->openTab(2);
    m_ui->replaceText(u"rtmpUrl"_s, url);
    m_ui->click(u"addRtmpButton"_s);
    m_ui->openTab(3);
    m_ui->settle();
    return id;
}

void tst_EditorPreview::textIsReadWhenTheSelectionChanges()
{
    QCOMPARE(shown(), QString()); // no selection yet

    const QString first = m_ui->addPipeline();
    m_ui->openTab(3);
    const QString before = m_ui->engine().previewCommand(first);
    QVERIFY(!before.isEmpty());
    QCOMPARE(shown(), before);

    m_ui->engine().addRtmpOutput(first, u"rtmp://host/live2/KEY"_s);
    QVERIFY(m_ui->engine().previewCommand(first).endsWith("rtmp://host/live2/KEY"_L1));
    QCOMPARE(shown(), before); // an edit doesn't refresh it
    m_ui->openTab(2);
    m_ui->openTab(3);
    QCOMPARE(shown(), before); // nor does opening the page

    const QString second = m_ui->addPipeline();
    QCOMPARE(shown(), m_ui->engine().previewCommand(second));
    m_ui->select(first);
    QCOMPARE(shown(), m_ui->engine().previewCommand(first));
    QVERIFY(shown().endsWith("rtmp://host/live2/KEY"_L1));
}

void tst_EditorPreview::refreshEndsTheBinding()
{
    const QString first = m_ui->addPipeline();
    m_ui->openTab(3);
    m_ui->engine().addRtmpOutput(first, u"rtmp://first"_s);
    m_ui->click(u"refreshPreviewButton"_s);
    QVERIFY(shown().endsWith("rtmp://first"_L1));
    const QString firstCommand = shown();

    // From here on the button alone changes the text.
    const QString second = m_ui->addPipeline();
    QCOMPARE(shown(), firstCommand);
    m_ui->engine().addRtmpOutput(second, u"rtmp://second"_s);
    m_ui->select(first);
    m_ui->select(second);
    QCOMPARE(shown(), firstCommand);

    m_ui->click(u"refreshPreviewButton"_s);
    QVERIFY(shown().endsWith("rtmp://second"_L1));
    QCOMPARE(shown(), m_ui->engine().previewCommand(second));
}

void tst_EditorPreview::textIsPlain()
{
    const QString id = addOutput(u"<b>x</b><img src=\"file:///nowhere.png\">"_s);
    m_ui->click(u"refreshPreviewButton"_s);
    QCOMPARE(shown(), m_ui->engine().previewCommand(id));
    QVERIFY(shown().contains("<b>x</b>"_L1));

    // Read-only: what is typed goes nowhere.
    m_ui->click(u"previewText"_s);
    m_ui->type(u"xyz"_s);
    m_ui->press(Qt::Key_Delete);
    QCOMPARE(shown(), m_ui->engine().previewCommand(id));
}

void tst_EditorPreview::textGrowsTheBox()
{
    const QString id = m_ui->addPipeline();
    m_ui->openTab(3);
    m_ui->settle();
    QCOMPARE(m_ui->item(u"previewBox"_s)->height(), 120.0);

    m_ui->engine().addRtmpOutput(id, u"rtmp://host/"_s + QString(6000, u'x'));
    m_ui->click(u"refreshPreviewButton"_s);
    m_ui->settle();
    const QQuickItem *text = m_ui->item(u"previewText"_s);
    QVERIFY(text->implicitHeight() > 200);
    QCOMPARE(m_ui->item(u"previewBox"_s)->height(), text->implicitHeight() + 24);
    QVERIFY(text->property("contentWidth").toReal() <= text->width());

    // What stands below is reached by scrolling.
    m_ui->click(u"startButton"_s);
    QTRY_VERIFY(state(id) != "stopped"_L1);
}

void tst_EditorPreview::startAndStop()
{
    const QString other = addOutput(u"fake:progress"_s);
    const QString id = addOutput(u"fake:progress"_s);

    m_ui->click(u"startButton"_s);
    QTRY_COMPARE(state(id), u"running"_s);
    QCOMPARE(state(other), u"stopped"_s);

    m_ui->click(u"stopButton"_s);
    QCOMPARE(state(id), u"stopped"_s);
    QVERIFY(m_ui->engine().log().contains("fake:progress"_L1));
}

void tst_EditorPreview::stopAsksNothing()
{
    const QString id = addOutput(u"fake:progress"_s);
    m_ui->click(u"stopButton"_s); // a stopped one: nothing to say
    QCOMPARE(state(id), u"stopped"_s);

    m_ui->click(u"startButton"_s);
    QTRY_COMPARE(state(id), u"running"_s);
    m_ui->click(u"stopButton"_s);
    QCOMPARE(state(id), u"stopped"_s); // at the first click
    QVERIFY(!m_ui->object(u"stopAllDialog"_s));
    QCOMPARE(m_ui->selectedId(), id);
}

void tst_EditorPreview::removeClosesTheEditor()
{
    const QString other = m_ui->addPipeline();
    const QString id = m_ui->addPipeline();
    m_ui->openTab(3);

    m_ui->click(u"removePipelineButton"_s);
    QCOMPARE(state(id), u"gone"_s);
    QCOMPARE(state(other), u"stopped"_s);
    QCOMPARE(m_ui->selectedId(), QString());
    QVERIFY(!m_ui->isShown(u"editor"_s));
    QVERIFY(m_ui->isShown(u"emptyState"_s));
    QCOMPARE(shown(), QString());

    // The page stays for the next selection.
    m_ui->select(other);
    QVERIFY(m_ui->isShown(u"previewPage"_s));
    QCOMPARE(shown(), m_ui->engine().previewCommand(other));
}

void tst_EditorPreview::removeWhileOnAir()
{
    const QString id = addOutput(u"fake:progress"_s);
    m_ui->click(u"startButton"_s);
    QTRY_COMPARE(state(id), u"running"_s);
    m_ui->click(u"removePipelineButton"_s);
    QCOMPARE(state(id), u"gone"_s);
    QCOMPARE(m_ui->selectedId(), QString());
    QVERIFY(!m_ui->engine().anyPipelineTransmitting());
}

void tst_EditorPreview::vanishedPipeline()
{
    const QString id = m_ui->addPipeline();
    m_ui->engine().removePipeline(id); // behind the window's back: the editor stays open
    QVERIFY(m_ui->isShown(u"editor"_s));
    QSignalSpy edits(&m_ui->engine(), &Engine::pipelinesChanged);

    m_ui->openTab(0);
    m_ui->choose(u"srcKind"_s, 1);
    m_ui->replaceText(u"srcUriField"_s, u"x"_s);
    m_ui->press(Qt::Key_Return);
    m_ui->step(u"resW"_s, true);
    m_ui->openTab(1);
    m_ui->step(u"encBitrate"_s, true);
    m_ui->click(u"encBFrames"_s);
    m_ui->click(u"detectHwButton"_s);
    m_ui->openTab(2);
    m_ui->replaceText(u"rtmpUrl"_s, u"rtmp://a"_s);
    m_ui->click(u"addRtmpButton"_s);
    m_ui->replaceText(u"srtUrl"_s, u"srt://a"_s);
    m_ui->click(u"addSrtButton"_s);
    m_ui->replaceText(u"srtlaHost"_s, u"a"_s);
    m_ui->click(u"addSrtlaButton"_s);
    m_ui->openTab(3);
    m_ui->click(u"refreshPreviewButton"_s);
    QCOMPARE(shown(), QString());
    m_ui->click(u"startButton"_s);
    m_ui->click(u"stopButton"_s);
    QCOMPARE(edits.count(), 0);
    QCOMPARE(m_ui->engine().pipelines(), QVariantList());

    m_ui->click(u"removePipelineButton"_s);
    QCOMPARE(edits.count(), 0);
    QVERIFY(m_ui->isShown(u"emptyState"_s));
}

QTEST_MAIN(tst_EditorPreview)
#include "tst_EditorPreview.moc"
