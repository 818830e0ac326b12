#include "tests/ui/Interface.h"

#include "app/GarbageCollection.h"
#include "tests/support/TestSupport.h"

#include <QQmlContext>
#include <QTest>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

QStringList collectedWarnings;
QtMessageHandler formerHandler = nullptr;

void collect(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtWarningMsg && message.contains(".qml"_L1))
        collectedWarnings << message;
    formerHandler(type, context, message);
}

void findItems(QQuickItem *below, const QString &name, QList<QQuickItem *> &found)
{
    if (below->objectName() == name)
        found << below;
    const QList<QQuickItem *> children = below->childItems();
    for (QQuickItem *child : children)
        findItems(child, name, found);
}

QPoint centreOf(const QQuickItem *item)
{
    return item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
}

} // namespace

void FakeUpdater::offer(const QString &version)
{
    m_updateAvailable = true;
    m_latestVersion = version;
    Q_EMIT changed();
}

Interface::Interface(const QByteArray &encoders, const QByteArray &protocols)
    : Interface([&](ToolPath &tools) { tools.addFakeFfmpeg(encoders, protocols); })
{
}

// The environment has to be complete before the Engine looks for tools, and before the QML engine is made.
Interface::Interface(const std::function<void(ToolPath &)> &addTools)
    : m_engine((disableIncrementalCollection(), addTools(m_tools), nullptr))
{
    collectedWarnings.clear();
    formerHandler = qInstallMessageHandler(collect);

    m_qml.rootContext()->setContextProperty(u"engine"_s, &m_engine);
    m_qml.rootContext()->setContextProperty(u"updater"_s, &m_updater);
    m_qml.load(QUrl(u"qrc:/qt/qml/Corvane/app/qml/Main.qml"_s));
    m_window = qobject_cast<QQuickWindow *>(m_qml.rootObjects().value(0));
    if (!m_window)
        qFatal("the window didn't load");
    m_window->requestActivate();
    if (!QTest::qWaitForWindowActive(m_window))
        qFatal("the window didn't become active");
    if (!waitUntil([this] { return m_window->property("complete").toBool(); }))
        qFatal("the window has no content");
    if (!awaitFrame())
        qFatal("the window doesn't draw itself");
}

Interface::~Interface()
{
    qInstallMessageHandler(formerHandler);
}

QStringList Interface::warnings() const
{
    return collectedWarnings;
}

QList<QQuickItem *> Interface::items(const QString &name, QQuickItem *within) const
{
    QList<QQuickItem *> found;
    findItems(within                                  ? within
              : m_window->contentItem()->parentItem() ? m_window->contentItem()->parentItem()
                                                      : m_window->contentItem(),
              name, found);
    return found;
}

QQuickItem *Interface::item(const QString &name, QQuickItem *within) const
{
    return items(name, within).value(0);
}

QObject *Interface::object(const QString &name, QObject *within) const
{
    return (within ? within : m_window.data())->findChild<QObject *>(name);
}

QQuickItem *Interface::row(int index) const
{
    const QList<QQuickItem *> rows = items(u"plDel"_s);
    for (QQuickItem *candidate : rows) {
        if (candidate->property("index").toInt() == index)
            return candidate;
    }
    return nullptr;
}

void Interface::scrollIntoView(QQuickItem *item) const
{
    for (QQuickItem *above = item->parentItem(); above; above = above->parentItem()) {
        if (!above->inherits("QQuickFlickable"))
            continue;
        auto *content = above->property("contentItem").value<QQuickItem *>();
        const qreal top = item->mapToItem(content, QPointF()).y();
        const qreal room = above->height() - item->height();
        const qreal limit = std::max(0.0, above->property("contentHeight").toReal() - above->height());
        above->setProperty("contentY", std::clamp(top - room / 2, 0.0, limit));
    }
}

// An item to be clicked has its place only once a frame has shown it.
bool Interface::awaitFrame() const
{
    bool shown = false;
    const QMetaObject::Connection connection =
        QObject::connect(m_window, &QQuickWindow::frameSwapped, [&shown] { shown = true; });
    m_window->update();
    const bool inTime = waitUntil([&shown] { return shown; });
    QObject::disconnect(connection);
    return inTime;
}

void Interface::click(QQuickItem *item)
{
    QVERIFY2(item, "there is no such item to click");
    scrollIntoView(item);
    QTest::mouseClick(m_window, Qt::LeftButton, Qt::NoModifier, centreOf(item));
}

void Interface::doubleClick(QQuickItem *item)
{
    QVERIFY2(item, "there is no such item to click");
    QTest::mouseDClick(m_window, Qt::LeftButton, Qt::NoModifier, centreOf(item));
}

void Interface::type(const QString &text)
{
    // One key event for a whole character, also one of two code units.
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QString character = text.mid(i, text.at(i).isHighSurrogate() ? 2 : 1);
        QTest::sendKeyEvent(QTest::Click, m_window.data(), Qt::Key_unknown, character, Qt::NoModifier);
        i += character.size() - 1;
    }
}

void Interface::press(Qt::Key key, Qt::KeyboardModifiers modifiers)
{
    QTest::keyClick(m_window, key, modifiers);
}

void Interface::replaceText(const QString &fieldName, const QString &text)
{
    QQuickItem *field = item(fieldName);
    QVERIFY2(field, qPrintable(fieldName));
    click(field);
    press(Qt::Key_A, Qt::ControlModifier);
    if (text.isEmpty())
        press(Qt::Key_Delete);
    else
        type(text);
}

void Interface::choose(const QString &comboName, int index)
{
    QQuickItem *combo = item(comboName);
    QVERIFY2(combo, qPrintable(comboName));
    click(combo);
    auto *popup = combo->property("popup").value<QObject *>();
    QTRY_VERIFY(popup->property("opened").toBool());
    auto *list = popup->property("contentItem").value<QQuickItem *>();
    QQuickItem *entry = nullptr;
    QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem *, entry), Q_ARG(int, index));
    QVERIFY2(entry, "the popup has no such entry");
    click(entry);
    QTRY_VERIFY(!popup->property("visible").toBool());
}

void Interface::openTab(int index)
{
    static const QStringList tabs{u"tabFonte"_s, u"tabEncoder"_s, u"tabSaídas"_s, u"tabPreview"_s};
    click(tabs.at(index));
    QTRY_COMPARE(item(u"pages"_s)->property("currentIndex").toInt(), index);
    QVERIFY(awaitFrame());
}

void Interface::awaitRest() const
{
    const QObject *pace = object(u"pace"_s);
    QVERIFY(pace);
    QTRY_VERIFY(!pace->property("running").toBool() && !pace->property("due").toBool());
}

void Interface::awaitRows() const
{
    QVERIFY(m_window->property("rowsDue").isValid());
    QTRY_VERIFY(!m_window->property("rowsDue").toBool());
}

QString Interface::addPipeline()
{
    click(u"addButton"_s);
    awaitRest();
    return selectedId();
}

QString Interface::addFake(const QString &steps, const QString &name)
{
    QString id = m_engine.addPipeline(name);
    m_engine.addRtmpOutput(id, "fake:"_L1 + steps);
    // With others on air the window shows changes without ever coming to rest.
    if (!waitUntil([this] { return !object(u"pace"_s)->property("due").toBool(); }))
        qFatal("the window doesn't show the new pipeline");
    return id;
}

Pipeline *Interface::pipeline(const QString &id) const
{
    // Replaced objects wait for their deletion beside the new one; the registry's is the youngest.
    Pipeline *found = nullptr;
    const auto pipelines = m_engine.findChildren<Pipeline *>();
    for (Pipeline *pipeline : pipelines) {
        if (pipeline->config().id == id)
            found = pipeline;
    }
    return found;
}

PipelineConfig Interface::config(const QString &id) const
{
    const Pipeline *found = pipeline(id);
    return found ? found->config() : PipelineConfig();
}

} // namespace corvane::test
