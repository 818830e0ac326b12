#include "tests/ui/LookTable.h"

#include <QColor>
#include <QJSValue>
#include <QMetaProperty>
#include <QQmlContext>
#include <QQmlProperty>
#include <QTest>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

QString colourText(const QColor &colour)
{
    if (colour.alpha() == 0)
        return u"transparent"_s;
    return colour.name(colour.alpha() == 255 ? QColor::HexRgb : QColor::HexArgb);
}

QString valueText(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<QJSValue>())
        return valueText(value.value<QJSValue>().toVariant());
    switch (value.typeId()) {
    case QMetaType::QColor:
        return colourText(value.value<QColor>());
    case QMetaType::Double:
    case QMetaType::Float:
        return QString::number(value.toDouble());
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return value.toStringList().join(" | "_L1);
    default:
        return value.toString();
    }
}

} // namespace

QObject *find(const Interface &ui, const QString &path)
{
    const QStringList names = path.split(u'/');
    QObject *found = &ui.window();
    for (const QString &step : names) {
        const QString name = step.section(u'[', 0, 0);
        const int index = step.section(u'[', 1).chopped(step.endsWith(u']') ? 1 : 0).toInt();
        if (name == found->objectName())
            continue;
        auto *above = qobject_cast<QQuickItem *>(found);
        QObject *next = ui.items(name, above).value(index);
        found = next ? next : ui.object(name, found);
        if (!found)
            return nullptr;
    }
    return found;
}

QString lookText(QObject *object, const QString &property)
{
    const QQmlProperty read(object, property, qmlContext(object));
    if (!read.isValid())
        return u"?"_s;
    const QMetaProperty meta = read.property();
    const QVariant value = read.read();
    if (meta.isEnumType()) {
        if (const char *key = meta.enumerator().valueToKey(value.toInt()))
            return QString::fromLatin1(key);
    }
    return valueText(value);
}

QString outline(const QQuickItem *layout)
{
    QStringList parts;
    const QList<QQuickItem *> children = layout->childItems();
    for (const QQuickItem *child : children) {
        const bool isLayout = child->inherits("QQuickLayout") || child->inherits("QQuickBasePositioner");
        if (!child->isVisible() || child->inherits("QQuickRepeater"))
            continue;
        parts << (isLayout ? u'(' + outline(child) + u')' : child->objectName());
    }
    return parts.join(u' ');
}

void addLooks(std::initializer_list<Look> looks)
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("expected");
    for (const Look &look : looks) {
        QTest::addRow("%s %s", look.item, look.property)
            << QString::fromUtf8(look.item) << QString::fromUtf8(look.property)
            << QString::fromUtf8(look.expected);
    }
}

void compareLook(const Interface &ui)
{
    QFETCH(const QString, item);
    QFETCH(const QString, property);
    QFETCH(const QString, expected);
    QObject *object = find(ui, item);
    QVERIFY2(object, "there is no such item");
    QCOMPARE(lookText(object, property), expected);
}

void LookTest::openWithOutputs()
{
    m_ui = std::make_unique<Interface>();
    const QString id = m_ui->addPipeline();
    m_ui->engine().addRtmpOutput(id, u"rtmp://host/live/key"_s);
    m_ui->engine().addSrtOutput(id, u"srt://host:9000"_s, 120, {});
    m_ui->engine().addSrtlaOutput(id, u"receiver"_s, 5000);
    m_ui->engine().setOutputEnabled(id, 1, false);
    // The list of outputs is read when the selection changes.
    m_ui->window().setProperty("selectedId", QString());
    m_ui->window().setProperty("selectedId", id);
}

void LookTest::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
}

} // namespace corvane::test
