#include "tests/support/ProgramSandbox.h"
#include "tests/support/TestSupport.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// What the built program holds, seen from within by the plugin of ProgramInspector.cpp.
class tst_QmlModule : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void identity_data();
    void identity();
    void moduleFile();
    void sourceOfMain();
    void registersTheModuleInVersionOne();
    void exportsTheRegistration();
    void collectsGarbageInOneGo();
    void showsOneWindowMadeOfMain();
    void windowHasTheIcon();
    void contextPropertiesOfTheRoot();

private:
    QJsonObject m_found;
};

void tst_QmlModule::initTestCase()
{
    ProgramSandbox sandbox;
    QProcessEnvironment &environment = sandbox.environment();
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    environment.insert(u"QT_PLUGIN_PATH"_s, QStringLiteral(CORVANE_TEST_PLUGINS));
    environment.insert(u"QT_QPA_GENERIC_PLUGINS"_s, u"corvane_inspector"_s);
    environment.insert(u"CORVANE_INSPECT_REPORT"_s, sandbox.path(u"report.json"_s));
    environment.insert(u"CORVANE_INSPECT_THEN"_s, u"quit"_s);
    QProcess program;
    sandbox.prepare(program);
    program.start();
    QVERIFY(program.waitForFinished());
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);

    QFile report(sandbox.path(u"report.json"_s));
    QVERIFY2(report.open(QIODevice::ReadOnly), program.readAllStandardError().constData());
    m_found = QJsonDocument::fromJson(report.readAll()).object();
    QVERIFY(!m_found.isEmpty());
}

void tst_QmlModule::identity_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");

    QTest::newRow("class") << u"applicationClass"_s << u"corvane::SafeApp"_s;
    QTest::newRow("name") << u"applicationName"_s << u"CORVANE"_s;
    QTest::newRow("organization") << u"organizationName"_s << u"halvorndev"_s;
    QTest::newRow("domain, as configured")
        << u"organizationDomain"_s << QStringLiteral(CORVANE_ORGANIZATION_DOMAIN);
    QTest::newRow("version") << u"applicationVersion"_s << u"0.1.0"_s;
}

void tst_QmlModule::identity()
{
    QFETCH(const QString, key);
    QFETCH(const QString, expected);

    QCOMPARE(m_found.value(key).toString(), expected);
    QVERIFY(!expected.isEmpty());
}

void tst_QmlModule::moduleFile()
{
    const QStringList lines = m_found.value("qmldir"_L1).toString().split(u'\n', Qt::SkipEmptyParts);

    QCOMPARE(lines, QStringList({u"module Corvane"_s, u"typeinfo corvane.qmltypes"_s,
                                 u"prefer :/qt/qml/Corvane/"_s, u"Main 1.0 app/qml/Main.qml"_s}));
}

void tst_QmlModule::sourceOfMain()
{
    QFile source(QStringLiteral(CORVANE_MAIN_QML));
    QVERIFY(source.open(QIODevice::ReadOnly));
    const QString written = QString::fromUtf8(source.readAll());
    QVERIFY(!written.isEmpty());

    QCOMPARE(m_found.value("mainSource"_L1).toString(), written);
}

void tst_QmlModule::registersTheModuleInVersionOne()
{
    QVERIFY(m_found.value("imports10"_L1).toBool());
    QVERIFY(!m_found.value("imports20"_L1).toBool(true));
}

void tst_QmlModule::exportsTheRegistration()
{
    // qml_register_types_Corvane() by its C++ name, found in the executable and in no library.
    const QFileInfo exporter(m_found.value("registrationExportedBy"_L1).toString());

    QCOMPARE(exporter.canonicalFilePath(), QFileInfo(corvaneProgram()).canonicalFilePath());
}

void tst_QmlModule::collectsGarbageInOneGo()
{
    QCOMPARE(m_found.value("garbageCollectionLimit"_L1).toString(), u"0"_s);
}

void tst_QmlModule::showsOneWindowMadeOfMain()
{
    const QJsonArray windows = m_found.value("windows"_L1).toArray();

    QCOMPARE(windows.size(), 1);
    QCOMPARE(windows.at(0).toObject().value("title"_L1).toString(), u"CORVANE"_s);
    QCOMPARE(windows.at(0).toObject().value("source"_L1).toString(),
             u"qrc:/qt/qml/Corvane/app/qml/Main.qml"_s);
}

void tst_QmlModule::windowHasTheIcon()
{
    const QJsonArray widths =
        m_found.value("windows"_L1).toArray().at(0).toObject().value("iconWidths"_L1).toArray();

    QCOMPARE(widths, QJsonArray({16, 32, 48, 64}));
}

void tst_QmlModule::contextPropertiesOfTheRoot()
{
    const QJsonObject properties = m_found.value("contextProperties"_L1).toObject();

    QCOMPARE(properties.value("engine"_L1).toString(), u"corvane::Engine"_s);
}

QTEST_GUILESS_MAIN(tst_QmlModule)
#include "tst_QmlModule.moc"
