#include "tests/support/Runner.h"
#include "tests/ui/Interface.h"
#include "update/UpdateChecker.h"

#include <QFile>
#include <QJSEngine>
#include <QMetaMethod>
#include <QMetaProperty>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The document's text against the objects that it refers to: QML resolves a name only when it is evaluated,
/// and some branches seldom are.
class tst_WindowNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void usedNames_data();
    void usedNames();
    void everyNameExists_data();
    void everyNameExists();
    void handledSignals_data();
    void handledSignals();
    void themeTokens();
    void monoByPlatform_data();
    void monoByPlatform();
    void standInHasTheUpdatersFace();

private:
    [[nodiscard]] QStringList namesAfter(const QString &object) const;

    QString m_document;
};

namespace {

/// Properties and methods within QML's reach, inherited ones included.
QStringList reachable(const QMetaObject &meta)
{
    QStringList names;
    for (int i = 0; i < meta.propertyCount(); ++i)
        names << QString::fromLatin1(meta.property(i).name());
    for (int i = 0; i < meta.methodCount(); ++i) {
        if (meta.method(i).access() == QMetaMethod::Public)
            names << QString::fromLatin1(meta.method(i).name());
    }
    return names;
}

QStringList methodsOf(const QMetaObject &meta, QMetaMethod::MethodType type)
{
    QStringList names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == type)
            names << QString::fromLatin1(meta.method(i).typeName()) + u' ' +
                         QString::fromLatin1(meta.method(i).methodSignature());
    }
    return names;
}

/// Type, name, signal of change, and whether it can be written.
QStringList propertiesOf(const QMetaObject &meta)
{
    QStringList properties;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        const QMetaProperty property = meta.property(i);
        properties << u"%1 %2 %3%4"_s.arg(QString::fromLatin1(property.typeName()),
                                          QString::fromLatin1(property.name()),
                                          QString::fromLatin1(property.notifySignal().methodSignature()),
                                          property.isWritable() ? u" writable"_s : QString());
    }
    return properties;
}

const QMetaObject &metaObjectOf(const QString &name)
{
    return name == "engine"_L1 ? Engine::staticMetaObject : UpdateChecker::staticMetaObject;
}

} // namespace

void tst_WindowNames::initTestCase()
{
    QFile file(u":/qt/qml/Corvane/app/qml/Main.qml"_s);
    QVERIFY(file.open(QFile::ReadOnly));
    // Comments and texts are free of these rules.
    m_document = QString::fromUtf8(file.readAll());
    m_document.remove(QRegularExpression(uR"("(?:[^"\\\n]|\\.)*")"_s));
    m_document.remove(QRegularExpression(u"//[^\n]*"_s));
    QVERIFY(m_document.size() > 10000);
}

QStringList tst_WindowNames::namesAfter(const QString &object) const
{
    QStringList names;
    const QRegularExpression use(uR"(\b%1\s*(?:\?\.|\.)\s*(\w+))"_s.arg(object));
    for (auto match = use.globalMatch(m_document); match.hasNext();)
        names << match.next().captured(1);
    names.removeDuplicates();
    names.sort();
    return names;
}

void tst_WindowNames::usedNames_data()
{
    QTest::addColumn<QStringList>("names");

    QTest::newRow("engine") << QStringList{
        u"addPipeline"_s,     u"addRtmpOutput"_s,     u"addSrtOutputFull"_s,
        u"addSrtlaOutput"_s,  u"bitrateAdvice"_s,     u"clearLog"_s,
        u"clearOutputs"_s,    u"configureEncoder"_s,  u"configureSource"_s,
        u"decklinkDevices"_s, u"decklinkSupported"_s, u"encoderAdvice"_s,
        u"ffmpegHasNdi"_s,    u"ffmpegPath"_s,        u"log"_s,
        u"ndiSources"_s,      u"ndiSupported"_s,      u"outputsView"_s,
        u"pipelines"_s,       u"previewCommand"_s,    u"removeOutput"_s,
        u"removePipeline"_s,  u"renamePipeline"_s,    u"setOutputEnabled"_s,
        u"srtAvailable"_s,    u"srtParamAdvice"_s,    u"srtlaAvailable"_s,
        u"startAll"_s,        u"startPipeline"_s,     u"stopAll"_s,
        u"stopPipeline"_s};
    QTest::newRow("updater") << QStringList{u"applyIfSafe"_s, u"checkNow"_s, u"latestVersion"_s,
                                            u"updateAvailable"_s};
}

void tst_WindowNames::usedNames()
{
    QFETCH(const QStringList, names);
    QCOMPARE(namesAfter(QString::fromUtf8(QTest::currentDataTag())), names);
}

void tst_WindowNames::everyNameExists_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QString>("name");

    for (const QString &object : {u"engine"_s, u"updater"_s}) {
        const QStringList names = namesAfter(object);
        for (const QString &name : names)
            QTest::addRow("%s.%s", qPrintable(object), qPrintable(name)) << object << name;
    }
}

void tst_WindowNames::everyNameExists()
{
    QFETCH(const QString, object);
    QFETCH(const QString, name);
    QVERIFY(reachable(metaObjectOf(object)).contains(name));
}

void tst_WindowNames::handledSignals_data()
{
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("engine") << QStringList{u"logChanged"_s, u"pipelinesChanged"_s};
    QTest::newRow("updater") << QStringList{u"checkFailed"_s, u"upToDate"_s};
}

void tst_WindowNames::handledSignals()
{
    QFETCH(const QStringList, expected);
    const QString object = QString::fromUtf8(QTest::currentDataTag());
    const QMetaObject &meta = metaObjectOf(object);

    // A block of handlers: from its target to the brace that closes it, at the indentation of its name.
    const QRegularExpression block(uR"(^( *)Connections \{\n *target: %1\n(.*?)^\1\})"_s.arg(object),
                                   QRegularExpression::MultilineOption |
                                       QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpression handler(uR"(function on(\w)(\w*)\()"_s);
    QStringList handled;
    for (auto blocks = block.globalMatch(m_document); blocks.hasNext();) {
        for (auto match = handler.globalMatch(blocks.next().captured(2)); match.hasNext();) {
            const auto found = match.next();
            handled << found.captured(1).toLower() + found.captured(2);
        }
    }
    handled.sort();
    QCOMPARE(handled, expected);

    QStringList emitted;
    for (int i = 0; i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == QMetaMethod::Signal)
            emitted << QString::fromLatin1(meta.method(i).name());
    }
    for (const QString &signal : std::as_const(handled))
        QVERIFY2(emitted.contains(signal), qPrintable(signal));
}

void tst_WindowNames::themeTokens()
{
    const Interface ui;
    const QStringList declared = reachable(*ui.object(u"theme"_s)->metaObject());
    QStringList missing;
    const QStringList used = namesAfter(u"theme"_s);
    for (const QString &token : used) {
        if (!declared.contains(token))
            missing << token;
    }
    QVERIFY(used.size() > 10);
    QCOMPARE(missing, QStringList{u"fg"_s});
}

void tst_WindowNames::monoByPlatform_data()
{
    QTest::addColumn<QString>("family");

    for (const char *os : {"windows", "linux", "unix", "ios", ""})
        QTest::addRow("on '%s'", os) << u"Consolas"_s;
    QTest::newRow("on 'osx'") << u"Menlo"_s;
}

// The token is of the type colour, in which the name of a font doesn't survive: it is evaluated by itself.
void tst_WindowNames::monoByPlatform()
{
    QFETCH(const QString, family);
    QFile file(u":/qt/qml/Corvane/app/qml/Main.qml"_s);
    QVERIFY(file.open(QFile::ReadOnly));
    static const QRegularExpression declaration(uR"(readonly property color mono: ([^\n]+))"_s);
    const auto match = declaration.match(QString::fromUtf8(file.readAll()));
    QVERIFY(match.hasMatch());

    QJSEngine js;
    QJSValue platform = js.newObject();
    platform.setProperty(u"os"_s, QString::fromUtf8(QTest::currentDataTag()).section(u'\'', 1, 1));
    QJSValue qt = js.newObject();
    qt.setProperty(u"platform"_s, platform);
    js.globalObject().setProperty(u"Qt"_s, qt);
    QCOMPARE(js.evaluate(match.captured(1)).toString(), family);
}

void tst_WindowNames::standInHasTheUpdatersFace()
{
    const QMetaObject &standIn = FakeUpdater::staticMetaObject;
    const QMetaObject &updater = UpdateChecker::staticMetaObject;
    for (const auto type : {QMetaMethod::Signal, QMetaMethod::Slot}) {
        QVERIFY(!methodsOf(updater, type).isEmpty());
        QCOMPARE(methodsOf(standIn, type), methodsOf(updater, type));
    }
    QVERIFY(!propertiesOf(updater).isEmpty());
    QCOMPARE(propertiesOf(standIn), propertiesOf(updater));
}

CORVANE_TEST(tst_WindowNames, corvane::test::WindowApplication)
#include "tst_WindowNames.moc"
