#include "engine/Engine.h"
#include "tests/support/Runner.h"

#include <QMetaMethod>
#include <QMetaProperty>

#include <QTest>

#include <type_traits>

using namespace Qt::StringLiterals;
using namespace corvane;

/// Members of the Engine within the interface's reach: signals, properties and operations, by signature and
/// order.
class tst_EngineInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsInOrder();
    void propertiesInOrder_data();
    void propertiesInOrder();
    void hasNoOtherProperties();
    void operationsInOrder();
    void operationsAreMethods();
    void hiddenQueriesAreConst();
};

namespace {

const QMetaObject &engineMeta = Engine::staticMetaObject;

/// "QString name(QString) const", a cloned default marked with a star.
QString methodForm(const QMetaMethod &method)
{
    QString form =
        QString::fromLatin1(method.typeName()) + u' ' + QString::fromLatin1(method.methodSignature());
    if (method.isConst())
        form += u" const"_s;
    if (method.attributes() & QMetaMethod::Cloned)
        form += u'*';
    return form;
}

QStringList formsOf(QMetaMethod::MethodType type)
{
    QStringList forms;
    for (int i = engineMeta.methodOffset(); i < engineMeta.methodCount(); ++i) {
        if (engineMeta.method(i).methodType() == type)
            forms << methodForm(engineMeta.method(i));
    }
    return forms;
}

} // namespace

void tst_EngineInterface::signalsInOrder()
{
    QCOMPARE(formsOf(QMetaMethod::Signal), QStringList({
                                               u"void environmentChanged()"_s,
                                               u"void pipelinesChanged()"_s,
                                               u"void logChanged()"_s,
                                           }));
}

void tst_EngineInterface::propertiesInOrder_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QMetaType>("type");
    QTest::addColumn<QByteArray>("notify"); // empty: constant

    int position = 0;
    const auto row = [&](const char *name, QMetaType type, const char *notify) {
        QTest::newRow(name) << position++ << QByteArray(name) << type << QByteArray(notify);
    };
    row("ffmpegPath", QMetaType::fromType<QString>(), "environmentChanged");
    row("ffmpegHasNdi", QMetaType::fromType<bool>(), "environmentChanged");
    row("srtAvailable", QMetaType::fromType<bool>(), "environmentChanged");
    row("srtlaAvailable", QMetaType::fromType<bool>(), "environmentChanged");
    row("availableEncoders", QMetaType::fromType<QStringList>(), "environmentChanged");
    row("pipelines", QMetaType::fromType<QVariantList>(), "pipelinesChanged");
    row("log", QMetaType::fromType<QString>(), "logChanged");
    row("ndiSupported", QMetaType::fromType<bool>(), "");
    row("decklinkSupported", QMetaType::fromType<bool>(), "");
}

void tst_EngineInterface::propertiesInOrder()
{
    QFETCH(int, position);
    QFETCH(QByteArray, notify);

    const QMetaProperty property = engineMeta.property(engineMeta.propertyOffset() + position);
    QTEST(QByteArray(property.name()), "name");
    QTEST(property.metaType(), "type");
    QCOMPARE(property.notifySignal().name(), notify);
    QCOMPARE(property.hasNotifySignal(), !notify.isEmpty());
    QCOMPARE(property.isConstant(), notify.isEmpty());
    QVERIFY(property.isReadable());
    QVERIFY(!property.isWritable());
    QVERIFY(!property.isResettable());
}

void tst_EngineInterface::hasNoOtherProperties()
{
    QCOMPARE(engineMeta.propertyCount() - engineMeta.propertyOffset(), 9);
    QCOMPARE(QByteArray(engineMeta.className()), QByteArray("corvane::Engine"));
    QVERIFY(engineMeta.inherits(&QObject::staticMetaObject));
}

void tst_EngineInterface::operationsInOrder()
{
    const QStringList expected{
        u"void clearLog()"_s,
        u"QString addPipeline(QString)"_s,
        u"void removePipeline(QString)"_s,
        u"void startPipeline(QString)"_s,
        u"void stopPipeline(QString)"_s,
        u"void startAll()"_s,
        u"void stopAll()"_s,
        u"void configureSource(QString,QVariantMap)"_s,
        u"void configureEncoder(QString,QVariantMap)"_s,
        u"void addRtmpOutput(QString,QString)"_s,
        u"void addSrtOutput(QString,QString,int,QString)"_s,
        u"void addSrtlaOutput(QString,QString,int)"_s,
        u"void clearOutputs(QString)"_s,
        u"void removeOutput(QString,int)"_s,
        u"void setOutputEnabled(QString,int,bool)"_s,
        u"QVariantList outputsView(QString) const"_s,
        u"QVariantMap bitrateAdvice(int,int,int) const"_s,
        u"QVariantMap srtParamAdvice(QString) const"_s,
        u"void renamePipeline(QString,QString)"_s,
        u"void addSrtOutputFull(QString,QString,int,QString,QString,int,int)"_s,
        u"QVariantMap encoderAdvice(int,int,int) const"_s,
        u"QString previewCommand(QString) const"_s,
        u"QStringList ndiSources(int)"_s,
        u"QStringList ndiSources()*"_s,
        u"QStringList decklinkDevices()"_s,
        u"bool audioBridgeAvailable() const"_s,
        u"QVariantMap audioBridgeStatus() const"_s,
    };
    QCOMPARE(formsOf(QMetaMethod::Method), expected);
}

void tst_EngineInterface::operationsAreMethods()
{
    QCOMPARE(formsOf(QMetaMethod::Slot), QStringList());
    for (int i = engineMeta.methodOffset(); i < engineMeta.methodCount(); ++i)
        QCOMPARE(engineMeta.method(i).access(), QMetaMethod::Public);

    // Members for the other parts of the program, not for QML.
    for (const char *hidden :
         {"anyPipelineTransmitting()", "metricsText()", "allocateLocalPort()", "appendLog(QString)"})
        QCOMPARE(engineMeta.indexOfMethod(hidden), -1);
}

void tst_EngineInterface::hiddenQueriesAreConst()
{
    // By their types: a build without it wouldn't come this far.
    static_assert(std::is_same_v<decltype(&Engine::anyPipelineTransmitting), bool (Engine::*)() const>);
    static_assert(std::is_same_v<decltype(&Engine::metricsText), QString (Engine::*)() const>);
    static_assert(std::is_same_v<decltype(&Engine::pipelines), QVariantList (Engine::*)() const>);
    static_assert(std::is_same_v<decltype(&Engine::allocateLocalPort), int (Engine::*)()>);
}

CORVANE_TEST(tst_EngineInterface, corvane::test::NoApplication)
#include "tst_EngineInterface.moc"
