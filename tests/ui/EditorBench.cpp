#include "tests/ui/EditorBench.h"

#include <QAccessible>
#include <QClipboard>
#include <QGuiApplication>
#include <QQmlProperty>
#include <QSignalSpy>
#include <QTest>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

QString asText(const QString &value)
{
    return value;
}

QString asText(int value)
{
    return QString::number(value);
}

QString asText(bool value)
{
    return value ? u"true"_s : u"false"_s;
}

} // namespace

QStringList fieldsOf(const PipelineConfig &config)
{
    QStringList fields;
    const auto add = [&](const QString &name, const auto &value) { fields << name + u' ' + asText(value); };

    add(u"id"_s, config.id);
    add(u"name"_s, config.name);
    add(u"source.kind"_s, config.source.kind);
    add(u"source.uri"_s, config.source.uri);
    add(u"source.width"_s, config.source.width);
    add(u"source.height"_s, config.source.height);
    add(u"source.fps"_s, config.source.fps);
    add(u"source.danteEnabled"_s, config.source.danteEnabled);
    add(u"source.danteDevice"_s, config.source.danteDevice);
    add(u"source.channelMap"_s, config.source.channelMap);
    add(u"source.ndiPipePath"_s, config.source.ndiPipePath);
    add(u"scaler.kind"_s, config.scaler.kind);
    add(u"scaler.width"_s, config.scaler.width);
    add(u"scaler.height"_s, config.scaler.height);
    add(u"encoder.codec"_s, config.encoder.codec);
    add(u"encoder.hw"_s, config.encoder.hw);
    add(u"encoder.preset"_s, config.encoder.preset);
    add(u"encoder.bitrate"_s, config.encoder.bitrate);
    add(u"encoder.keyintSec"_s, config.encoder.keyintSec);
    add(u"encoder.zeroLatency"_s, config.encoder.zeroLatency);
    add(u"encoder.bFrames"_s, config.encoder.bFrames);
    add(u"encoder.audioCodec"_s, config.encoder.audioCodec);
    add(u"encoder.audioBitrate"_s, config.encoder.audioBitrate);
    for (qsizetype i = 0; i < config.outputs.size(); ++i) {
        const OutputConfig &output = config.outputs.at(i);
        const QString prefix = u"outputs[%1]."_s.arg(i);
        add(prefix + "kind"_L1, output.kind);
        add(prefix + "url"_L1, output.url);
        add(prefix + "enabled"_L1, output.enabled);
        add(prefix + "srtLatencyMs"_L1, output.srtLatencyMs);
        add(prefix + "passphrase"_L1, output.passphrase);
        add(prefix + "streamId"_L1, output.streamId);
        add(prefix + "oheadbw"_L1, output.oheadbw);
        add(prefix + "maxbw"_L1, output.maxbw);
        add(prefix + "groupMode"_L1, output.groupMode);
        add(prefix + "receiverHost"_L1, output.receiverHost);
        add(prefix + "receiverPort"_L1, output.receiverPort);
        // The number depends on the ports that are free.
        add(prefix + "hasLocalPort"_L1, output.localPort > 0);
        add(prefix + "hasLocalPort2"_L1, output.localPort2 > 0);
    }
    add(u"autoRestart"_s, config.autoRestart);
    add(u"restart.enabled"_s, config.restart.enabled);
    add(u"restart.initialBackoffMs"_s, config.restart.initialBackoffMs);
    add(u"restart.maxBackoffMs"_s, config.restart.maxBackoffMs);
    add(u"restart.maxRestartsInWindow"_s, config.restart.maxRestartsInWindow);
    add(u"restart.windowSec"_s, config.restart.windowSec);
    add(u"restart.hangTimeoutMs"_s, config.restart.hangTimeoutMs);
    return fields;
}

RecordWatch::RecordWatch(Interface &ui, QString id)
    : m_ui(ui)
    , m_id(std::move(id))
    , m_before(fieldsOf(ui.config(m_id)))
    , m_edits(&ui.engine(), &Engine::pipelinesChanged)
{
}

QStringList RecordWatch::changes() const
{
    const auto nameOf = [](const QString &field) { return field.section(u' ', 0, 0); };
    const QStringList now = fieldsOf(m_ui.config(m_id));
    QStringList names;
    QStringList changed;
    for (const QString &field : now) {
        names << nameOf(field);
        if (!m_before.contains(field))
            changed << field;
    }
    for (const QString &field : m_before) {
        if (!names.contains(nameOf(field)))
            changed << "- "_L1 + field;
    }
    return changed;
}

void RecordWatch::restart()
{
    m_before = fieldsOf(m_ui.config(m_id));
    m_edits.clear();
}

QString EditorBench::addUnusual()
{
    QString id = addPipeline();
    engine().configureSource(id, {
                                     {u"kind"_s, u"file"_s},
                                     {u"uri"_s, u"/clip.mov"_s},
                                     {u"width"_s, 322},
                                     {u"height"_s, 242},
                                     {u"fps"_s, 7},
                                 });
    engine().configureEncoder(id, {
                                      {u"codec"_s, u"av1"_s},
                                      {u"hw"_s, u"amf"_s},
                                      {u"preset"_s, u"slow"_s},
                                      {u"bitrate"_s, 777},
                                      {u"keyintSec"_s, 9},
                                      {u"zeroLatency"_s, false},
                                      {u"bFrames"_s, true},
                                      {u"audioCodec"_s, u"libmp3lame"_s},
                                      {u"audioBitrate"_s, 99},
                                  });
    awaitRest();
    return id;
}

void EditorBench::removeAll()
{
    const QVariantList rows = engine().pipelines();
    for (const QVariant &row : rows)
        engine().removePipeline(row.toMap().value(u"id"_s).toString());
    awaitRest();
}

void EditorBench::select(const QString &id)
{
    const auto rowOf = [&]() -> QQuickItem * {
        const QList<QQuickItem *> rows = items(u"plDel"_s);
        for (QQuickItem *candidate : rows) {
            if (candidate->property("modelData").toMap().value(u"id"_s).toString() == id)
                return candidate;
        }
        return nullptr;
    };
    QTRY_VERIFY2(rowOf(), "the list has no such pipeline");
    click(rowOf());
    QCOMPARE(selectedId(), id);
}

QVariant EditorBench::valueOf(QObject *object, const QString &property)
{
    return object ? QQmlProperty(object, property, qmlContext(object)).read() : QVariant();
}

QVariant EditorBench::value(const QString &name, const QString &property) const
{
    QObject *found = item(name);
    return valueOf(found ? found : object(name), property);
}

bool EditorBench::isShown(const QString &name) const
{
    const QQuickItem *found = item(name);
    return found && found->isVisible();
}

bool EditorBench::showsFocus(const QString &textField) const
{
    const QVariant framed = value(textField, u"background.controlHasActiveFocus"_s);
    return framed.isValid() ? framed.toBool() : value(textField, u"background.height"_s).toInt() == 2;
}

void EditorBench::step(const QString &spinBox, bool up)
{
    click(value(spinBox, up ? u"up.indicator"_s : u"down.indicator"_s).value<QQuickItem *>());
}

void EditorBench::hover(QQuickItem *item)
{
    QVERIFY(item);
    settle();
    const QPoint centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
    QTest::mouseMove(&window(), centre + QPoint(1, 1));
    QTest::mouseMove(&window(), centre);
}

void EditorBench::settle()
{
    QSignalSpy frames(&window(), &QQuickWindow::frameSwapped);
    window().update();
    QVERIFY(frames.wait(20000));
}

void EditorBench::paste(const QString &text)
{
    QGuiApplication::clipboard()->setText(text);
    press(Qt::Key_V, Qt::ControlModifier);
}

QString EditorBench::focused() const
{
    const QQuickItem *item = window().activeFocusItem();
    while (item && (item->objectName().isEmpty() || item->objectName() == "plDel"_L1))
        item = item->parentItem();
    return item ? item->objectName() : QString();
}

void EditorBench::focusByTab(const QString &name)
{
    for (int presses = 0; presses < 60 && focused() != name; ++presses)
        press(Qt::Key_Tab);
    QCOMPARE(focused(), name);
}

QString EditorBench::spokenName(QQuickItem *item)
{
    QAccessibleInterface *spoken = QAccessible::queryAccessibleInterface(item);
    return spoken ? spoken->text(QAccessible::Name) : QString();
}

void EditorPageTest::initTestCase()
{
    m_ui = std::make_unique<EditorBench>();
}

void EditorPageTest::init()
{
    m_ui->removeAll();
    m_id = m_ui->addUnusual();
    m_ui->openTab(m_tab);
}

void EditorPageTest::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
}

} // namespace corvane::test
