#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QGuiApplication>
#include <QStyleHints>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The list of outputs on the page "Saídas": its rows, and when they are read; switch, removal, clearing.
class tst_EditorOutputs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void rowShowsItsOutput_data();
    void rowShowsItsOutput();
    void emptyListSaysSo();
    void listLooksOnlyWhenTheSelectionChanges();
    void switchSendsItsState();
    void deleteTakesTwoClicks();
    void deleteTipOnHover();
    void secondClickTooLateDoesNotDelete();
    void confirmationIsTheRowsOwn();
    void staleRowIsIgnored();
    void staleRowActsOnItsPlace();
    void clearAllAtOnce();

private:
    [[nodiscard]] QList<QQuickItem *> rows() const { return m_ui->items(u"outputRow"_s); }
    [[nodiscard]] QQuickItem *part(const QString &name, int row) const
    {
        return m_ui->item(name, rows().value(row));
    }
    [[nodiscard]] QString partText(const QString &name, int row) const
    {
        return EditorBench::valueOf(part(name, row), u"text"_s).toString();
    }
    [[nodiscard]] QStringList urls() const;
    void lookAgain(); ///< by selecting the other pipeline and coming back

    std::unique_ptr<EditorBench> m_ui;
    QString m_other;
    QString m_id;
};

void tst_EditorOutputs::initTestCase()
{
    // Not every platform enables hover effects by itself.
    QGuiApplication::styleHints()->setUseHoverEffects(true);
    m_ui = std::make_unique<EditorBench>();
}

void tst_EditorOutputs::init()
{
    m_ui->removeAll();
    m_other = m_ui->addPipeline();
    m_id = m_ui->addPipeline();
    m_ui->openTab(2);
}

void tst_EditorOutputs::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
}

QStringList tst_EditorOutputs::urls() const
{
    QStringList found;
    for (const OutputConfig &output : m_ui->config(m_id).outputs)
        found << output.url;
    return found;
}

void tst_EditorOutputs::lookAgain()
{
    m_ui->select(m_other);
    m_ui->select(m_id);
    m_ui->settle();
}

void tst_EditorOutputs::rowShowsItsOutput_data()
{
    QTest::addColumn<QString>("icon");
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("kind");

    QTest::newRow("rtmp") << u"📡"_s << u"rtmp://a/live2/k"_s << int(OutputKind::Rtmp);
    QTest::newRow("bonded") << u"🔗"_s << u"srtla://host:5001"_s << int(OutputKind::Srtla);
    QTest::newRow("srt") << u"🌐"_s << u"srt://h:9000"_s << int(OutputKind::Srt);
    QTest::newRow("markup is shown as it stands")
        << u"📡"_s << u"<b>x</b><img src=\"file:///x.png\">"_s << int(OutputKind::Rtmp);
}

void tst_EditorOutputs::rowShowsItsOutput()
{
    QFETCH(QString, url);
    QFETCH(int, kind);

    if (kind == OutputKind::Rtmp)
        m_ui->engine().addRtmpOutput(m_id, url);
    else if (kind == OutputKind::Srt)
        m_ui->engine().addSrtOutputFull(m_id, url, 100, {}, {}, 25, 0);
    else
        m_ui->engine().addSrtlaOutput(m_id, u"host"_s, 5001);
    lookAgain();

    QCOMPARE(rows().size(), 1);
    QTEST(partText(u"outputIcon"_s, 0), "icon");
    QCOMPARE(partText(u"outputUrl"_s, 0),
             m_ui->engine().outputsView(m_id).at(0).toMap().value(u"url"_s).toString());
    if (kind != OutputKind::Srtla)
        QCOMPARE(partText(u"outputUrl"_s, 0), url);
    QCOMPARE(part(u"outputSwitch"_s, 0)->property("checked"), QVariant(true));
    QCOMPARE(partText(u"outputDelete"_s, 0), u"✗"_s);
}

void tst_EditorOutputs::emptyListSaysSo()
{
    QCOMPARE(rows().size(), 0);
    QVERIFY(m_ui->isShown(u"noOutputsLabel"_s));
    QVERIFY(!m_ui->isShown(u"clearOutputsButton"_s));

    m_ui->engine().addRtmpOutput(m_id, u"rtmp://a"_s);
    lookAgain();
    QCOMPARE(rows().size(), 1);
    QVERIFY(!m_ui->isShown(u"noOutputsLabel"_s));
    QVERIFY(m_ui->isShown(u"clearOutputsButton"_s));
}

void tst_EditorOutputs::listLooksOnlyWhenTheSelectionChanges()
{
    m_ui->replaceText(u"rtmpUrl"_s, u"rtmp://a"_s);
    m_ui->click(u"addRtmpButton"_s);
    QCOMPARE(urls(), QStringList({u"rtmp://a"_s}));
    QCOMPARE(rows().size(), 0);
    QVERIFY(m_ui->isShown(u"noOutputsLabel"_s));
    QVERIFY(!m_ui->isShown(u"clearOutputsButton"_s));

    // The same pipeline again is no change of selection, nor is another page.
    m_ui->select(m_id);
    m_ui->openTab(0);
    m_ui->openTab(2);
    QCOMPARE(rows().size(), 0);

    lookAgain();
    QCOMPARE(rows().size(), 1);

    // Neither do a switch, a removal or a new output refresh it.
    m_ui->engine().setOutputEnabled(m_id, 0, false);
    QCOMPARE(part(u"outputSwitch"_s, 0)->property("checked"), QVariant(true));
    m_ui->engine().removeOutput(m_id, 0);
    QCOMPARE(rows().size(), 1);
    QVERIFY(!m_ui->isShown(u"noOutputsLabel"_s));
    QVERIFY(m_ui->isShown(u"clearOutputsButton"_s));

    lookAgain();
    QCOMPARE(rows().size(), 0);
    QVERIFY(m_ui->isShown(u"noOutputsLabel"_s));
}

void tst_EditorOutputs::switchSendsItsState()
{
    for (const char *url : {"rtmp://a", "rtmp://b", "rtmp://c"})
        m_ui->engine().addRtmpOutput(m_id, QLatin1String(url));
    m_ui->engine().setOutputEnabled(m_id, 2, false);
    lookAgain();
    QCOMPARE(part(u"outputSwitch"_s, 2)->property("checked"), QVariant(false));

    RecordWatch record(*m_ui, m_id);
    m_ui->click(part(u"outputSwitch"_s, 1));
    QCOMPARE(record.changes(), QStringList({u"outputs[1].enabled false"_s}));
    m_ui->click(part(u"outputSwitch"_s, 1));
    QCOMPARE(record.changes(), QStringList());
    m_ui->click(part(u"outputSwitch"_s, 2));
    QCOMPARE(record.changes(), QStringList({u"outputs[2].enabled true"_s}));
    QCOMPARE(record.edits(), 3);
}

void tst_EditorOutputs::deleteTakesTwoClicks()
{
    for (const char *url : {"rtmp://a", "rtmp://b"})
        m_ui->engine().addRtmpOutput(m_id, QLatin1String(url));
    lookAgain();
    QObject *timer = m_ui->object(u"delConfirmTimer"_s, rows().at(0));
    QCOMPARE(timer->property("interval").toInt(), 2000);
    QCOMPARE(timer->property("repeat"), QVariant(false));
    QCOMPARE(timer->property("running"), QVariant(false));

    RecordWatch record(*m_ui, m_id);
    m_ui->click(part(u"outputDelete"_s, 0));
    QCOMPARE(record.edits(), 0);
    QCOMPARE(rows().at(0)->property("confirmDelete"), QVariant(true));
    QCOMPARE(partText(u"outputDelete"_s, 0), u"?"_s);
    QCOMPARE(timer->property("running"), QVariant(true));

    m_ui->click(part(u"outputDelete"_s, 0));
    QCOMPARE(urls(), QStringList({u"rtmp://b"_s}));
    QCOMPARE(record.edits(), 1);
    QCOMPARE(rows().size(), 2); // the old state
    QCOMPARE(rows().at(0)->property("confirmDelete"), QVariant(false));
    QCOMPARE(partText(u"outputDelete"_s, 0), u"✗"_s);
}

void tst_EditorOutputs::deleteTipOnHover()
{
    m_ui->engine().addRtmpOutput(m_id, u"rtmp://a"_s);
    lookAgain();
    QQuickItem *button = part(u"outputDelete"_s, 0);
    const auto tip = [button](const QString &property) {
        return EditorBench::valueOf(button, u"ToolTip."_s + property);
    };
    QCOMPARE(tip(u"visible"_s), QVariant(false));
    m_ui->hover(button);
    QTRY_COMPARE(tip(u"visible"_s), QVariant(true));
    QCOMPARE(tip(u"text"_s).toString(), u"Remover"_s);
    m_ui->click(button);
    QCOMPARE(tip(u"text"_s).toString(), u"Clique de novo para remover"_s);
    m_ui->hover(m_ui->item(u"outputsHeading"_s));
    QTRY_COMPARE(tip(u"visible"_s), QVariant(false));
}

void tst_EditorOutputs::secondClickTooLateDoesNotDelete()
{
    m_ui->engine().addRtmpOutput(m_id, u"rtmp://a"_s);
    lookAgain();
    RecordWatch record(*m_ui, m_id);
    m_ui->click(part(u"outputDelete"_s, 0));
    QTRY_COMPARE_WITH_TIMEOUT(rows().at(0)->property("confirmDelete"), QVariant(false), 20000);
    QCOMPARE(partText(u"outputDelete"_s, 0), u"✗"_s);

    m_ui->click(part(u"outputDelete"_s, 0));
    QCOMPARE(rows().at(0)->property("confirmDelete"), QVariant(true));
    QCOMPARE(urls(), QStringList({u"rtmp://a"_s}));
    QCOMPARE(record.edits(), 0);
}

void tst_EditorOutputs::confirmationIsTheRowsOwn()
{
    for (const char *url : {"rtmp://a", "rtmp://b"})
        m_ui->engine().addRtmpOutput(m_id, QLatin1String(url));
    lookAgain();
    m_ui->click(part(u"outputDelete"_s, 0));
    m_ui->click(part(u"outputDelete"_s, 1));
    QCOMPARE(urls(), QStringList({u"rtmp://a"_s, u"rtmp://b"_s}));
    QCOMPARE(rows().at(1)->property("confirmDelete"), QVariant(true));

    // A change of selection recreates the rows.
    lookAgain();
    QCOMPARE(rows().at(0)->property("confirmDelete"), QVariant(false));
    QCOMPARE(rows().at(1)->property("confirmDelete"), QVariant(false));
}

void tst_EditorOutputs::staleRowIsIgnored()
{
    for (const char *url : {"rtmp://a", "rtmp://b"})
        m_ui->engine().addRtmpOutput(m_id, QLatin1String(url));
    lookAgain();
    m_ui->click(part(u"outputDelete"_s, 1));
    m_ui->click(part(u"outputDelete"_s, 1));
    QCOMPARE(urls(), QStringList({u"rtmp://a"_s}));

    RecordWatch record(*m_ui, m_id);
    m_ui->click(part(u"outputSwitch"_s, 1));
    m_ui->click(part(u"outputDelete"_s, 1));
    m_ui->click(part(u"outputDelete"_s, 1));
    QCOMPARE(record.edits(), 0);
    QCOMPARE(urls(), QStringList({u"rtmp://a"_s}));
    QCOMPARE(rows().size(), 2);
}

void tst_EditorOutputs::staleRowActsOnItsPlace()
{
    for (const char *url : {"rtmp://a", "rtmp://b", "rtmp://c"})
        m_ui->engine().addRtmpOutput(m_id, QLatin1String(url));
    lookAgain();
    m_ui->click(part(u"outputDelete"_s, 0));
    m_ui->click(part(u"outputDelete"_s, 0));
    QCOMPARE(urls(), QStringList({u"rtmp://b"_s, u"rtmp://c"_s}));

    // The row still shows "rtmp://b", but its place is now that of "rtmp://c".
    QCOMPARE(partText(u"outputUrl"_s, 1), u"rtmp://b"_s);
    RecordWatch record(*m_ui, m_id);
    m_ui->click(part(u"outputSwitch"_s, 1));
    QCOMPARE(record.changes(), QStringList({u"outputs[1].enabled false"_s}));
    QCOMPARE(urls().at(1), u"rtmp://c"_s);
}

void tst_EditorOutputs::clearAllAtOnce()
{
    for (const char *url : {"rtmp://a", "rtmp://b"})
        m_ui->engine().addRtmpOutput(m_id, QLatin1String(url));
    lookAgain();
    RecordWatch record(*m_ui, m_id);
    m_ui->click(u"clearOutputsButton"_s);
    QCOMPARE(urls(), QStringList());
    QCOMPARE(record.edits(), 1);
    QCOMPARE(rows().size(), 2); // the old state, button included
    QVERIFY(m_ui->isShown(u"clearOutputsButton"_s));
    QVERIFY(!m_ui->isShown(u"noOutputsLabel"_s));
}

CORVANE_TEST(tst_EditorOutputs, corvane::test::WindowApplication)
#include "tst_EditorOutputs.moc"
