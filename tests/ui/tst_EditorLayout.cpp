#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QGuiApplication>
#include <QStyleHints>
#include <QTest>

#include <cmath>

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
    void smallestSize();
    void nothingOverlaps_data();
    void nothingOverlaps();
    void pageScrollsToItsLastControl_data();
    void pageScrollsToItsLastControl();
    void scrollBarStaysWhileThereIsMore_data();
    void scrollBarStaysWhileThereIsMore();
    void captionsShareTheirFieldsBaseline_data();
    void captionsShareTheirFieldsBaseline();
    void placeholdersCanBeRead_data();
    void placeholdersCanBeRead();
    void choicesStandOut_data();
    void choicesStandOut();
    void tabUnderThePointerIsLit();
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

const QSize smallest(1000, 480);
const QList<QSize> sizes{{1280, 820}, {1024, 640}, {3840, 2160}, smallest};
const QStringList lastControls{u"fpsPicker"_s, u"encAudioBitrate"_s, u"clearOutputsButton"_s,
                               u"removePipelineButton"_s};

/// Name of an item for a message, with the beginning of its text.
QString nameOf(const QQuickItem *item)
{
    const QString name = item->objectName().isEmpty() ? QString::fromLatin1(item->metaObject()->className())
                                                      : item->objectName();
    const QString text = item->property("text").toString().left(20);
    return text.isEmpty() ? name : name + u" \""_s + text + u'"';
}

/// Items that people see or press: text, controls, dots, boxes. Items that only arrange others don't count.
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

/// Pairs of items in one layout that overlap, and items that stick out of it.
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

/// Relative luminance and contrast as WCAG 2.1 has them.
double luminance(const QColor &colour)
{
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

double contrast(const QColor &one, const QColor &other)
{
    const double a = luminance(one);
    const double b = luminance(other);
    return (qMax(a, b) + 0.05) / (qMin(a, b) + 0.05);
}

/// Texts that are truncated without an ellipsis.
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
    QGuiApplication::styleHints()->setUseHoverEffects(true); // not every platform enables them by itself
    m_ui = std::make_unique<EditorBench>();
    const QString steps = u"fake:progress"_s;
    for (int i = 0; i < 3; ++i) {
        m_id = m_ui->addPipeline();
        m_ui->engine().addRtmpOutput(m_id, steps);
        m_ui->engine().addSrtOutputFull(m_id, u"srt://host:9000/"_s + QString(300, u'x'), 120, {}, {}, 25, 0);
        m_ui->engine().addSrtlaOutput(m_id, u"host"_s, 5000);
    }
    // Every part that shows only at times: a stream on air, rows of outputs, the advice, a long preview.
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
    // Registered once for each factor. Run by hand without one, or on a screen with a factor of its own, it
    // has nothing to compare with.
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

void tst_EditorLayout::smallestSize()
{
    QCOMPARE(m_ui->window().minimumSize(), smallest);
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

    // Scrolled by the wheel, as far as it goes.
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

void tst_EditorLayout::scrollBarStaysWhileThereIsMore_data()
{
    nothingOverlaps_data();
}

void tst_EditorLayout::scrollBarStaysWhileThereIsMore()
{
    QFETCH(QSize, size);
    QFETCH(int, page);

    resize(size);
    m_ui->openTab(page);
    m_ui->settle();
    QQuickItem *view = pageAt(page);
    auto *bar = EditorBench::valueOf(view, u"ScrollBar.vertical"_s).value<QQuickItem *>();
    auto *handle = EditorBench::valueOf(bar, u"contentItem"_s).value<QQuickItem *>();
    auto *flickable = EditorBench::valueOf(view, u"contentItem"_s).value<QQuickItem *>();
    const bool more = flickable->property("contentHeight").toReal() > flickable->height();
    if (page == 1)
        QCOMPARE(more, size.height() < 2000);
    QTRY_COMPARE(bar->isVisible(), more);
    if (more)
        QTRY_COMPARE(handle->opacity(), 1.0);
    // It covers no control.
    const double right = view->property("availableWidth").toReal() - bar->width();
    const QQuickItem *last = m_ui->item(lastControls.at(page));
    QVERIFY(last->mapToItem(view, QPointF(last->width(), 0)).x() <= right);
}

void tst_EditorLayout::captionsShareTheirFieldsBaseline_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("field");

    const QList<std::pair<int, QStringList>> fields{
        {0, {u"srcKind"_s, u"srcUriField"_s, u"danteField"_s, u"resW"_s, u"fpsPicker"_s}},
        {1,
         {u"encCodec"_s, u"encHw"_s, u"encPreset"_s, u"encBitrate"_s, u"encKeyint"_s, u"encAudioCodec"_s,
          u"encAudioBitrate"_s}},
        {2,
         {u"srtScenario"_s, u"srtUrl"_s, u"srtLatency"_s, u"srtPass"_s, u"srtStreamid"_s, u"srtOheadbw"_s,
          u"srtMaxbw"_s}},
    };
    for (const auto &[page, names] : fields) {
        for (const QString &name : names) {
            QString caption = name;
            caption.replace("srcUriField"_L1, "srcUri"_L1).replace("danteField"_L1, "dante"_L1);
            caption.replace("resW"_L1, "resolution"_L1).replace("fpsPicker"_L1, "fps"_L1);
            QTest::addRow("%sCaption", qPrintable(caption)) << page << name;
        }
    }
}

void tst_EditorLayout::captionsShareTheirFieldsBaseline()
{
    QFETCH(int, page);
    QFETCH(QString, field);

    resize({1280, 820});
    m_ui->openTab(page);
    m_ui->settle();
    const auto baseline = [&](const QString &name) {
        const QQuickItem *item = m_ui->item(name);
        return item->mapToItem(pageAt(page), QPointF(0, item->baselineOffset())).y();
    };
    const double caption = baseline(QString::fromUtf8(QTest::currentDataTag()));
    QVERIFY2(qAbs(caption - baseline(field)) <= 0.5,
             qPrintable(u"%1 and %2"_s.arg(caption).arg(baseline(field))));
}

void tst_EditorLayout::placeholdersCanBeRead_data()
{
    QTest::addColumn<int>("page");

    QTest::newRow("srcUriField") << 0;
    QTest::newRow("danteField") << 0;
    QTest::newRow("rtmpUrl") << 2;
    QTest::newRow("srtUrl") << 2;
    QTest::newRow("srtPass") << 2;
    QTest::newRow("srtStreamid") << 2;
    QTest::newRow("srtlaHost") << 2;
}

void tst_EditorLayout::placeholdersCanBeRead()
{
    QFETCH(int, page);

    m_ui->openTab(page);
    const QString field = QString::fromUtf8(QTest::currentDataTag());
    const QColor text = m_ui->value(field, u"placeholderTextColor"_s).value<QColor>();
    const QColor behind = m_ui->value(u"centrePanel"_s, u"color"_s).value<QColor>();
    QCOMPARE(text.alpha(), 255);
    QVERIFY2(contrast(text, behind) >= 4.5, qPrintable(QString::number(contrast(text, behind))));
}

void tst_EditorLayout::choicesStandOut_data()
{
    QTest::addColumn<int>("page");

    QTest::newRow("srcKind") << 0;
    QTest::newRow("fpsPicker") << 0;
    QTest::newRow("encCodec") << 1;
    QTest::newRow("srtScenario") << 2;
}

// Some versions of the style fill them, others draw a line round them.
void tst_EditorLayout::choicesStandOut()
{
    QFETCH(int, page);

    resize({1280, 820});
    m_ui->openTab(page);
    m_ui->settle();
    const QImage shown = m_ui->window().grabWindow();
    const double scale = double(shown.width()) / m_ui->window().width();
    const QQuickItem *choice = m_ui->item(QString::fromUtf8(QTest::currentDataTag()));
    const QRectF place = choice->mapRectToScene(choice->boundingRect());
    const auto at = [&](double x) {
        return shown.pixelColor(int(x * scale), int((place.top() + place.height() * 0.7) * scale));
    };
    const QColor behind = at(place.left() - 6);
    QCOMPARE(behind, m_ui->value(u"centrePanel"_s, u"color"_s).value<QColor>());
    double most = 1;
    for (int x = 0; x < 12; ++x)
        most = qMax(most, contrast(at(place.left() + x), behind));
    QVERIFY2(most >= 1.25, qPrintable(QString::number(most)));
}

// Qt's software renderer draws the style's ripples in the corner of the window.
void tst_EditorLayout::tabUnderThePointerIsLit()
{
    resize({1280, 820});
    m_ui->openTab(0);
    m_ui->hover(m_ui->item(u"logHeader"_s));
    const QImage atRest = m_ui->window().grabWindow();
    const double scale = double(atRest.width()) / m_ui->window().width();
    const auto shown = [&](const QImage &picture, const QString &name) {
        const QRectF place = m_ui->item(name)->mapRectToScene(m_ui->item(name)->boundingRect());
        return picture.copy(QRectF(place.topLeft() * scale, place.size() * scale).toRect());
    };
    const auto corner = [&](const QString &name) {
        return shown(m_ui->window().grabWindow(), name).pixelColor(4, 4);
    };

    m_ui->hover(m_ui->item(u"tabEncoder"_s));

    QTRY_VERIFY(corner(u"tabEncoder"_s) != shown(atRest, u"tabEncoder"_s).pixelColor(4, 4));
    QCOMPARE(shown(m_ui->window().grabWindow(), u"sidebar"_s), shown(atRest, u"sidebar"_s));
    m_ui->hover(m_ui->item(u"logHeader"_s));
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

CORVANE_TEST(tst_EditorLayout, corvane::test::WindowApplication)
#include "tst_EditorLayout.moc"
