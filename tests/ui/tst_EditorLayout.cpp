#include "tests/ui/EditorBench.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The window at several sizes, under the scale factor that the environment sets: nothing overlaps, nothing
/// sticks out, and every page scrolls to its end.
class tst_EditorLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void scaleFactor();
    void nothingOverlaps_data();
    void nothingOverlaps();
    void pageScrollsToItsLastControl_data();
    void pageScrollsToItsLastControl();
    void listScrollsToItsLastRow_data();
    void listScrollsToItsLastRow();
    void logFollowsItsEnd_data();
    void logFollowsItsEnd();

private:
    void resize(const QSize &size);
    void turnWheel(QQuickItem *flickable, const QPointF &at); ///< downwards, and waits until it rests
    [[nodiscard]] QQuickItem *pageAt(int index) const;

    std::unique_ptr<EditorBench> m_ui;
    QString m_id;
    quint64 m_wheelTime = 1000000;
};

namespace {

const QList<QSize> sizes{{1280, 820}, {1024, 640}, {3840, 2160}};
const QStringList lastControls{u"fpsPicker"_s, u"encAudioBitrate"_s, u"clearOutputsButton"_s,
                               u"removePipelineButton"_s};

/// A text without a name of its own is told by what it says.
QString nameOf(const QQuickItem *item)
{
    const QString name = item->objectName().isEmpty() ? QString::fromLatin1(item->metaObject()->className())
                                                      : item->objectName();
    const QString text = item->property("text").toString().left(20);
    return text.isEmpty() ? name : name + u" \""_s + text + u'"';
}

/// Things that people see or press: text, controls, dots, boxes. What only arranges others is none.
bool isShown(const QQuickItem *item)
{
    return item->isVisible() && item->opacity() > 0 && item->width() > 0 && item->height() > 0;
}

bool arranges(const QQuickItem *item)
{
    for (const char *type : {"QQuickLayout", "QQuickBasePositioner"}) {
        if (item->inherits(type))
            return true;
    }
    return false;
}

void findLayouts(QQuickItem *below, QList<QQuickItem *> &found)
{
    if (!isShown(below))
        return;
    if (arranges(below))
        found << below;
    const QList<QQuickItem *> children = below->childItems();
    for (QQuickItem *child : children)
        findLayouts(child, found);
}

/// Pairs of things in one layout that lie on each other, and things that stick out of it.
QStringList faultsIn(const QQuickItem *layout)
{
    QStringList faults;
    QList<QQuickItem *> shown;
    const QList<QQuickItem *> children = layout->childItems();
    for (QQuickItem *child : children) {
        if (isShown(child))
            shown << child;
    }
    constexpr double slack = 0.5;
    for (qsizetype i = 0; i < shown.size(); ++i) {
        const QQuickItem *one = shown.at(i);
        if (one->x() < -slack || one->x() + one->width() > layout->width() + slack) {
            faults << u"%1 sticks out of %2: %3 to %4 of %5"_s.arg(nameOf(one), nameOf(layout))
                          .arg(one->x())
                          .arg(one->x() + one->width())
                          .arg(layout->width());
        }
        const QRectF place(one->position(), one->size());
        if (one->y() < -slack || one->y() + one->height() > layout->height() + slack) {
            faults << u"%1 stands over %2: %3 to %4 of %5"_s.arg(nameOf(one), nameOf(layout))
                          .arg(one->y())
                          .arg(one->y() + one->height())
                          .arg(layout->height());
        }
        for (qsizetype j = i + 1; j < shown.size(); ++j) {
            const QRectF other(shown.at(j)->position(), shown.at(j)->size());
            const QRectF common = place & other;
            if (common.width() > slack && common.height() > slack)
                faults << u"%1 lies on %2"_s.arg(nameOf(one), nameOf(shown.at(j)));
        }
    }
    return faults;
}

/// Texts that are cut off without saying so.
void findCutTexts(QQuickItem *below, QStringList &faults)
{
    if (!isShown(below))
        return;
    if (below->inherits("QQuickLabel") && below->property("elide").toInt() == Qt::ElideNone &&
        below->property("contentWidth").toReal() > below->width() + 0.5)
        faults << u"%1 needs %2 of %3"_s.arg(nameOf(below))
                      .arg(below->property("contentWidth").toReal())
                      .arg(below->width());
    const QList<QQuickItem *> children = below->childItems();
    for (QQuickItem *child : children)
        findCutTexts(child, faults);
}

} // namespace

void tst_EditorLayout::initTestCase()
{
    m_ui = std::make_unique<EditorBench>();
    const QString steps = u"fake:progress"_s;
    for (int i = 0; i < 3; ++i) {
        m_id = m_ui->addPipeline();
        m_ui->engine().addRtmpOutput(m_id, steps);
        m_ui->engine().addSrtOutputFull(m_id, u"srt://host:9000/"_s + QString(300, u'x'), 120, {}, {}, 25, 0);
        m_ui->engine().addSrtlaOutput(m_id, u"host"_s, 5000);
    }
    // Everything that shows only at times: a stream on air, rows of outputs, the advice, a long preview.
    m_ui->engine().renamePipeline(m_id, u"Um nome comprido de stream que não cabe"_s);
    m_ui->engine().clearOutputs(m_id);
    m_ui->engine().addRtmpOutput(m_id, steps);
    m_ui->engine().startPipeline(m_id);
    QTRY_COMPARE(m_ui->engine().pipelines().constLast().toMap().value(u"state"_s), u"running"_s);
    const QString first = m_ui->engine().pipelines().constFirst().toMap().value(u"id"_s).toString();
    m_ui->select(m_id);
    m_ui->select(first);
    m_ui->openTab(1);
    m_ui->click(u"detectHwButton"_s);
    m_ui->updater().offer(u"12.34.56"_s);
}

void tst_EditorLayout::scaleFactor()
{
    // Registered once for each factor. Run by hand without one, or on a screen with a factor of its own,
    // it can't tell what to expect.
    if (!qEnvironmentVariableIsSet("QT_SCALE_FACTOR"))
        QSKIP("no scale factor is set");
    QCOMPARE(m_ui->window().effectiveDevicePixelRatio(), qEnvironmentVariable("QT_SCALE_FACTOR").toDouble());
}

void tst_EditorLayout::resize(const QSize &size)
{
    m_ui->window().resize(size);
    QTRY_COMPARE(m_ui->window().size(), size);
    m_ui->settle();
}

void tst_EditorLayout::turnWheel(QQuickItem *flickable, const QPointF &at)
{
    QWheelEvent wheel(at, m_ui->window().mapToGlobal(at), {}, QPoint(0, -960), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    wheel.setTimestamp(m_wheelTime += 1000); // the speed of a turn follows from the time since the last
    QCoreApplication::sendEvent(&m_ui->window(), &wheel);
    m_ui->settle();
    QTRY_VERIFY(!flickable->property("moving").toBool());
}

QQuickItem *tst_EditorLayout::pageAt(int index) const
{
    static const QStringList names{u"sourcePage"_s, u"encoderPage"_s, u"outputsPage"_s, u"previewPage"_s};
    return m_ui->item(names.at(index));
}

void tst_EditorLayout::nothingOverlaps_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("page");

    for (const QSize &size : sizes) {
        for (int page = 0; page < 4; ++page)
            QTest::addRow("%d by %d, page %d", size.width(), size.height(), page) << size << page;
    }
}

void tst_EditorLayout::nothingOverlaps()
{
    QFETCH(QSize, size);
    QFETCH(int, page);

    resize(size);
    m_ui->openTab(page);
    m_ui->settle();

    QList<QQuickItem *> layouts;
    findLayouts(m_ui->window().contentItem(), layouts);
    QVERIFY(layouts.size() > 8);
    QStringList faults;
    for (const QQuickItem *layout : std::as_const(layouts))
        faults << faultsIn(layout);
    findCutTexts(m_ui->window().contentItem(), faults);
    QVERIFY2(faults.isEmpty(), qPrintable(faults.join(u'\n')));
    QCOMPARE(m_ui->value(u"streamsLabel"_s, u"truncated"_s), QVariant(false));

    // The page itself doesn't move sideways.
    const QQuickItem *view = pageAt(page);
    QCOMPARE(view->property("contentWidth"), view->property("availableWidth"));
    QCOMPARE(m_ui->warnings(), QStringList());
}

void tst_EditorLayout::pageScrollsToItsLastControl_data()
{
    nothingOverlaps_data();
}

void tst_EditorLayout::pageScrollsToItsLastControl()
{
    QFETCH(QSize, size);
    QFETCH(int, page);

    resize(size);
    m_ui->openTab(page);
    m_ui->settle();

    // By the wheel, as far as it goes.
    const QQuickItem *last = m_ui->item(lastControls.at(page));
    QVERIFY(last && last->isVisible());
    const QQuickItem *view = m_ui->item(u"pages"_s);
    auto *flickable = EditorBench::valueOf(pageAt(page), u"contentItem"_s).value<QQuickItem *>();
    const auto bottom = [&] { return last->mapToItem(view, QPointF(0, last->height())).y(); };
    const QPointF centre = view->mapToScene(QPointF(view->width() / 2, view->height() - 4));
    for (int turns = 0; turns < 100 && bottom() > view->height(); ++turns) {
        turnWheel(flickable, centre);
    }
    QVERIFY2(bottom() <= view->height(), qPrintable(u"%1 of %2"_s.arg(bottom()).arg(view->height())));
    QCOMPARE(m_ui->warnings(), QStringList());
}

void tst_EditorLayout::listScrollsToItsLastRow_data()
{
    QTest::addColumn<QSize>("size");
    for (const QSize &size : sizes)
        QTest::addRow("%d by %d", size.width(), size.height()) << size;
}

void tst_EditorLayout::listScrollsToItsLastRow()
{
    QFETCH(QSize, size);

    while (m_ui->engine().pipelines().size() < 60)
        m_ui->engine().addPipeline({});
    resize(size);
    // A stream is on air: the window doesn't come to rest.
    QTRY_COMPARE(m_ui->value(u"pipelineList"_s, u"count"_s), QVariant(60));
    QQuickItem *list = m_ui->item(u"pipelineList"_s);
    QVERIFY(list->property("contentHeight").toReal() > list->height());

    const auto last = [&] { return m_ui->row(59); };
    const QPointF centre = list->mapToScene(QPointF(list->width() / 2, list->height() / 2));
    for (int turns = 0; turns < 200 && !list->property("atYEnd").toBool(); ++turns) {
        turnWheel(list, centre);
    }
    QTRY_VERIFY(last());
    QTRY_VERIFY(last()->mapToItem(list, QPointF(0, last()->height())).y() <= list->height() + 0.5);
    QCOMPARE(m_ui->warnings(), QStringList());
}

void tst_EditorLayout::logFollowsItsEnd_data()
{
    listScrollsToItsLastRow_data();
}

void tst_EditorLayout::logFollowsItsEnd()
{
    QFETCH(QSize, size);

    resize(size);
    for (int i = 0; i < 40; ++i)
        m_ui->engine().appendLog(u"linha %1 "_s.arg(i) + QString(200, u'x'));
    m_ui->settle();

    const QQuickItem *area = m_ui->item(u"logArea"_s);
    const QRectF cursor = area->property("cursorRectangle").toRectF();
    const QQuickItem *view = m_ui->item(u"logScroll"_s);
    QTRY_VERIFY(area->height() > view->height());
    QTRY_VERIFY(area->mapRectToItem(view, cursor).bottom() <= view->height() + 0.5);
    QVERIFY(area->property("contentWidth").toReal() <= view->width());
    QCOMPARE(m_ui->warnings(), QStringList());
}

QTEST_MAIN(tst_EditorLayout)
#include "tst_EditorLayout.moc"
