#include "engine/PipelineStore.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/ui/LookTable.h"

#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Counts how often its list is read.
class CountingEngine : public Engine
{
    Q_OBJECT
    Q_PROPERTY(QVariantList pipelines READ countedPipelines NOTIFY pipelinesChanged)

public:
    CountingEngine()
        : Engine(nullptr)
    {
    }

    [[nodiscard]] QVariantList countedPipelines() const
    {
        ++reads;
        return pipelines();
    }

    mutable int reads = 0;
};

/// The pipeline list's header, its selection, and the window's reaction to pipelines that come and go.
class tst_WindowList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_ui = std::make_unique<Interface>();
        m_ui->awaitRest();
    }
    void cleanup();

    void emptyAtFirst();
    void plusAddsAndSelects_data();
    void plusAddsAndSelects();
    void clickSelects();
    void selectionFollowsTheRow();
    void firstRowOfAnIdIsTaken();
    void anyPointOfARowSelects();
    void removalOfTheSelected();
    void headerButtonsByState();
    void startAllStartsEveryOne();
    void stopAllButtonAsks();
    void namelessShowsItsPlace();
    void listScrolls();
    void newStreamComesIntoView_data();
    void newStreamComesIntoView();
    void changesAreShownTogether();
    void listIsReadOnceAChange();
    void clickOnAVanishedRow();

private:
    [[nodiscard]] bool visible(const QString &item) const { return m_ui->item(item)->isVisible(); }
    [[nodiscard]] QString nameInRow(int index) const
    {
        return lookText(m_ui->item(u"nameLabel"_s, m_ui->row(index)), u"text"_s);
    }
    [[nodiscard]] QVariant selectedPipeline() const { return m_ui->window().property("selectedPipeline"); }
    [[nodiscard]] QVariantMap selectedRow() const
    {
        const QVariant row = selectedPipeline();
        return row.metaType() == QMetaType::fromType<QJSValue>() ? row.value<QJSValue>().toVariant().toMap()
                                                                 : row.toMap();
    }
    [[nodiscard]] QString state(const QString &id) const
    {
        const Pipeline *pipeline = m_ui->pipeline(id);
        return pipeline ? QString::fromLatin1(QMetaEnum::fromType<Pipeline::State>().valueToKey(
                              static_cast<int>(pipeline->state())))
                        : u"gone"_s;
    }

    std::unique_ptr<Interface> m_ui;
};

void tst_WindowList::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
}

void tst_WindowList::emptyAtFirst()
{
    QVERIFY(!visible(u"startAllButton"_s));
    QVERIFY(!visible(u"stopAllButton"_s));
    QVERIFY(visible(u"addButton"_s));
    QVERIFY(visible(u"emptyState"_s));
    QVERIFY(!visible(u"editor"_s));
    QVERIFY(!m_ui->row(0));
    QCOMPARE(m_ui->selectedId(), QString());
    QVERIFY(selectedRow().isEmpty());
}

void tst_WindowList::plusAddsAndSelects_data()
{
    QTest::addColumn<QString>("button");

    QTest::newRow("in the sidebar") << u"addButton"_s;
    QTest::newRow("in the empty centre") << u"emptyAddButton"_s;
}

void tst_WindowList::plusAddsAndSelects()
{
    QFETCH(const QString, button);
    m_ui->click(button);
    const QVariantList rows = m_ui->engine().pipelines();
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.at(0).toMap().value(u"name"_s).toString(), u"Stream 1"_s);
    QCOMPARE(m_ui->selectedId(), rows.at(0).toMap().value(u"id"_s).toString());
    QCOMPARE(m_ui->selectedId().size(), 8);
    QCOMPARE(selectedRow(), rows.at(0).toMap());
    QVERIFY(!visible(u"emptyState"_s));
    QVERIFY(visible(u"editor"_s));
    QTRY_COMPARE(nameInRow(0), u"Stream 1"_s);

    m_ui->click(u"addButton"_s);
    QCOMPARE(m_ui->engine().pipelines().size(), 2);
    QCOMPARE(m_ui->selectedId(), m_ui->engine().pipelines().at(1).toMap().value(u"id"_s).toString());
}

void tst_WindowList::clickSelects()
{
    const QString first = m_ui->engine().addPipeline(u"um"_s);
    const QString second = m_ui->engine().addPipeline(u"dois"_s);
    QTRY_VERIFY(m_ui->row(1) && m_ui->row(1)->y() > 0);
    QSignalSpy rebuilds(&m_ui->engine(), &Engine::pipelinesChanged);

    m_ui->click(m_ui->row(1));
    QCOMPARE(m_ui->selectedId(), second);
    QCOMPARE(selectedRow().value(u"name"_s).toString(), u"dois"_s);
    QCOMPARE(lookText(m_ui->row(0), u"color"_s), u"transparent"_s);
    QCOMPARE(lookText(m_ui->row(1), u"color"_s), u"#2e2e34"_s);

    m_ui->click(m_ui->row(0));
    QCOMPARE(m_ui->selectedId(), first);
    QCOMPARE(lookText(m_ui->row(0), u"color"_s), u"#2e2e34"_s);
    QCOMPARE(lookText(m_ui->row(1), u"color"_s), u"transparent"_s);
    QCOMPARE(rebuilds.count(), 0);
}

void tst_WindowList::selectionFollowsTheRow()
{
    const QString id = m_ui->addPipeline();
    m_ui->engine().renamePipeline(id, u"outro"_s);
    QCOMPARE(m_ui->selectedId(), id);
    QCOMPARE(selectedRow().value(u"name"_s).toString(), u"outro"_s);
    m_ui->engine().addRtmpOutput(id, u"rtmp://host/live"_s);
    QCOMPARE(selectedRow().value(u"outputs"_s).toInt(), 1);
    QTRY_COMPARE(lookText(m_ui->row(0), u"color"_s), u"#2e2e34"_s);
}

void tst_WindowList::firstRowOfAnIdIsTaken()
{
    const QString id = m_ui->engine().addPipeline(u"único"_s);
    m_ui->window().setProperty("selectedId", u"00000000"_s);
    QVERIFY(selectedRow().isEmpty());
    m_ui->window().setProperty("selectedId", id);
    QCOMPARE(selectedRow(), m_ui->engine().pipelines().at(0).toMap());
    m_ui->window().setProperty("selectedId", QString());
    QVERIFY(selectedRow().isEmpty());

    // The store takes any ids, equal ones too.
    m_ui.reset();
    m_ui = std::make_unique<Interface>([](ToolPath &tools) {
        tools.addFakeFfmpeg();
        QList<PipelineConfig> stored(4);
        stored[0].id = u"0000000a"_s;
        for (int row = 1; row <= 3; ++row) {
            stored[row].id = u"cafe0001"_s;
            stored[row].name = u"igual %1"_s.arg(row);
        }
        PipelineStore::save(stored);
    });
    QCOMPARE(m_ui->engine().pipelines().size(), 4);
    m_ui->window().setProperty("selectedId", u"cafe0001"_s);
    QCOMPARE(selectedRow().value(u"name"_s).toString(), u"igual 1"_s);
    QCOMPARE(selectedRow(), m_ui->engine().pipelines().at(1).toMap());
}

void tst_WindowList::anyPointOfARowSelects()
{
    const QString id = m_ui->addPipeline();
    const QString other = m_ui->addPipeline();
    m_ui->awaitRest();
    const QQuickItem *row = m_ui->row(0);
    const double height = row->height();
    const QRectF inside = QRectF(0, 0, row->width(), height).adjusted(1, 1, -12, -2); // a splitter's handle
    for (const QPointF &point : {inside.topLeft(), inside.topRight(), inside.center(), inside.bottomLeft(),
                                 QPointF(inside.center().x(), inside.bottom()), inside.bottomRight()}) {
        const QPoint at = row->mapToScene(point).toPoint();
        m_ui->window().setProperty("selectedId", other);
        QTest::mouseClick(&m_ui->window(), Qt::LeftButton, Qt::NoModifier, at);
        QCOMPARE(m_ui->selectedId(), id);
        QVERIFY(!row->property("renaming").toBool());
        QTest::mouseDClick(&m_ui->window(), Qt::LeftButton, Qt::NoModifier, at);
        QVERIFY(row->property("renaming").toBool());
        m_ui->press(Qt::Key_Escape);
        QVERIFY(!row->property("renaming").toBool());
        QTRY_COMPARE(row->height(), height);
    }
}

void tst_WindowList::removalOfTheSelected()
{
    const QString first = m_ui->addPipeline();
    const QString second = m_ui->addPipeline();

    // Removed elsewhere: the selection remains, without a row.
    m_ui->engine().removePipeline(second);
    QCOMPARE(m_ui->selectedId(), second);
    QVERIFY(selectedRow().isEmpty());

    m_ui->window().setProperty("selectedId", first);
    m_ui->openTab(3);
    m_ui->click(u"removePipelineButton"_s);
    QCOMPARE(m_ui->selectedId(), QString());
    QVERIFY(selectedRow().isEmpty());
    QVERIFY(m_ui->engine().pipelines().isEmpty());
    QVERIFY(visible(u"emptyState"_s));
    QVERIFY(!visible(u"editor"_s));
    QVERIFY(!visible(u"startAllButton"_s));
}

void tst_WindowList::headerButtonsByState()
{
    const QString id = m_ui->addFake(u"progress"_s);
    QVERIFY(visible(u"startAllButton"_s));
    QVERIFY(!visible(u"stopAllButton"_s));

    m_ui->engine().startPipeline(id);
    QCOMPARE(state(id), startsAtOnce() ? u"Running"_s : u"Starting"_s);
    QVERIFY(visible(u"stopAllButton"_s));
    QTRY_COMPARE(state(id), u"Running"_s);
    QVERIFY(visible(u"startAllButton"_s));
    QVERIFY(visible(u"stopAllButton"_s));

    m_ui->engine().stopPipeline(id);
    QVERIFY(!visible(u"stopAllButton"_s));

    m_ui->engine().clearOutputs(id);
    m_ui->engine().startPipeline(id);
    QCOMPARE(state(id), u"Failed"_s);
    QVERIFY(visible(u"startAllButton"_s));
    QVERIFY(!visible(u"stopAllButton"_s));
}

void tst_WindowList::startAllStartsEveryOne()
{
    const QString first = m_ui->addFake(u"progress"_s);
    const QString second = m_ui->addFake(u"progress"_s);
    m_ui->click(u"startAllButton"_s);
    QTRY_COMPARE(state(first), u"Running"_s);
    QTRY_COMPARE(state(second), u"Running"_s);
}

void tst_WindowList::stopAllButtonAsks()
{
    const QString id = m_ui->addFake(u"progress"_s);
    m_ui->engine().startPipeline(id);
    QTRY_COMPARE(state(id), u"Running"_s);
    QTRY_VERIFY(m_ui->item(u"stopAllButton"_s)->width() > 0);
    m_ui->click(u"stopAllButton"_s);
    QTRY_VERIFY(m_ui->object(u"stopAllDialog"_s)->property("opened").toBool());
    QCOMPARE(state(id), u"Running"_s);
}

void tst_WindowList::namelessShowsItsPlace()
{
    const QString first = m_ui->engine().addPipeline(u"um"_s);
    const QString second = m_ui->engine().addPipeline(u"dois"_s);
    m_ui->engine().renamePipeline(second, {});
    QTRY_VERIFY(m_ui->row(1));
    QCOMPARE(nameInRow(0), u"um"_s);
    QCOMPARE(nameInRow(1), u"Stream 2"_s);
    m_ui->engine().removePipeline(first);
    QTRY_VERIFY(m_ui->row(0) && !m_ui->row(1));
    QCOMPARE(nameInRow(0), u"Stream 1"_s);
}

void tst_WindowList::listScrolls()
{
    QString last;
    for (int i = 0; i < 40; ++i)
        last = m_ui->engine().addPipeline({});
    QQuickItem *list = m_ui->item(u"pipelineList"_s);
    QTRY_VERIFY(list->property("contentHeight").toReal() > list->height());
    QMetaObject::invokeMethod(list, "positionViewAtEnd");
    QTRY_VERIFY(m_ui->row(39));
    m_ui->click(m_ui->row(39));
    QCOMPARE(m_ui->selectedId(), last);
}

void tst_WindowList::newStreamComesIntoView_data()
{
    QTest::addColumn<bool>("busy"); // whether the list has just been renewed, so that the next change waits

    QTest::newRow("at rest") << false;
    QTest::newRow("just after another change") << true;
}

void tst_WindowList::newStreamComesIntoView()
{
    QFETCH(const bool, busy);
    for (int i = 0; i < 40; ++i)
        m_ui->engine().addPipeline({});
    m_ui->awaitRest();
    QQuickItem *list = m_ui->item(u"pipelineList"_s);
    QMetaObject::invokeMethod(list, "positionViewAtBeginning");
    QTRY_VERIFY(m_ui->row(0));
    if (busy)
        m_ui->engine().renamePipeline(m_ui->engine().pipelines().at(3).toMap().value(u"id"_s).toString(),
                                      u"x"_s);
    m_ui->click(u"addButton"_s);
    QCOMPARE(m_ui->engine().pipelines().size(), 41);
    const auto inView = [&] {
        const QQuickItem *row = m_ui->row(40);
        if (!row || row->height() <= 0)
            return false;
        const QRectF place = row->mapRectToItem(list, QRectF(0, 0, row->width(), row->height()));
        return place.top() >= -0.5 && place.bottom() <= list->height() + 0.5;
    };
    QTRY_VERIFY(inView());
    QCOMPARE(lookText(m_ui->row(40), u"color"_s), u"#2e2e34"_s);
    m_ui->awaitRest();
    QVERIFY(inView());
}

void tst_WindowList::changesAreShownTogether()
{
    QSignalSpy renewals(m_ui->item(u"pipelineList"_s), SIGNAL(modelChanged()));
    const QString id = m_ui->engine().addPipeline(u"um"_s);
    QCOMPARE(renewals.count(), 1); // at once, after a rest
    for (int i = 0; i < 50; ++i)
        m_ui->engine().renamePipeline(id, QString::number(i));
    QCOMPARE(renewals.count(), 1);
    m_ui->awaitRest();
    QCOMPARE(renewals.count(), 2);
    QTRY_COMPARE(nameInRow(0), u"49"_s);
}

void tst_WindowList::listIsReadOnceAChange()
{
    CountingEngine engine;
    FakeUpdater updater;
    QQmlApplicationEngine qml;
    qml.rootContext()->setContextProperty(u"engine"_s, &engine);
    qml.rootContext()->setContextProperty(u"updater"_s, &updater);
    qml.load(QUrl(u"qrc:/qt/qml/Corvane/app/qml/Main.qml"_s));
    QCOMPARE(qml.rootObjects().size(), 1);
    const QObject *window = qml.rootObjects().constFirst();
    QTRY_VERIFY(window->property("complete").toBool());
    const QObject *pace = window->findChild<QObject *>(u"pace"_s);
    QTRY_VERIFY(!pace->property("running").toBool());
    QCOMPARE(engine.reads, 1);

    const QString id = engine.addPipeline({});
    QCOMPARE(engine.reads, 2);
    QTRY_VERIFY(!pace->property("running").toBool());
    QCOMPARE(engine.reads, 2);
    engine.renamePipeline(id, u"a"_s);
    engine.renamePipeline(id, u"b"_s);
    QTRY_VERIFY(!pace->property("running").toBool() && !pace->property("due").toBool());
    QCOMPARE(engine.reads, 4);
}

void tst_WindowList::clickOnAVanishedRow()
{
    const QString id = m_ui->engine().addPipeline({});
    QTRY_VERIFY(m_ui->row(0));
    {
        // Outdated rows: the list learns of the removal after the click.
        const QSignalBlocker unheard(m_ui->engine());
        m_ui->engine().removePipeline(id);
    }
    m_ui->click(m_ui->row(0));
    QCOMPARE(m_ui->selectedId(), id);
    QVERIFY(selectedRow().isEmpty());

    // Every call of the editor is without effect now.
    m_ui->openTab(0);
    m_ui->replaceText(u"srcUriField"_s, u"x"_s);
    m_ui->press(Qt::Key_Return);
    m_ui->openTab(2);
    m_ui->replaceText(u"rtmpUrl"_s, u"rtmp://host/live"_s);
    m_ui->click(u"addRtmpButton"_s);
    m_ui->openTab(3);
    m_ui->click(u"refreshPreviewButton"_s);
    m_ui->click(u"startButton"_s);
    m_ui->click(u"stopButton"_s);
    QVERIFY(m_ui->engine().pipelines().isEmpty());
    m_ui->click(u"removePipelineButton"_s);
    QCOMPARE(m_ui->selectedId(), QString());
}

CORVANE_TEST(tst_WindowList, corvane::test::WindowApplication)
#include "tst_WindowList.moc"
