#include "engine/host/Capabilities.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Reports of the engine about an NDI runtime, in a build that brings one.
class tst_EngineNdi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void answersForTheRuntime();
    void namesTheSources_data();
    void namesTheSources();
};

void tst_EngineNdi::init()
{
    setNdiRuntimeAvailable(true);
}

void tst_EngineNdi::cleanup()
{
    setNdiRuntimeAvailable(false);
    setNdiSourceScan({});
}

void tst_EngineNdi::answersForTheRuntime()
{
    EngineBench bench;
    QVERIFY(bench->ndiSupported());
    QVERIFY(bench->ffmpegHasNdi());
    QVERIFY(bench.logHas(u" | NDI=sim | "_s));

    // Support is queried each time, the result of the probe stays.
    setNdiRuntimeAvailable(false);
    QVERIFY(!bench->ndiSupported());
    QVERIFY(bench->ffmpegHasNdi());
}

void tst_EngineNdi::namesTheSources_data()
{
    QTest::addColumn<QStringList>("sources");
    QTest::addColumn<QString>("line");

    QTest::newRow("none") << QStringList() << u"NDI discovery: 0 fonte(s) "_s;
    QTest::newRow("one") << QStringList{u"ESTUDIO (Câmera 1)"_s}
                         << u"NDI discovery: 1 fonte(s) — ESTUDIO (Câmera 1)"_s;
    QTest::newRow("several") << QStringList{u"ESTUDIO (Câmera 1)"_s, u"%1"_s, u"PLACAR"_s}
                             << u"NDI discovery: 3 fonte(s) — ESTUDIO (Câmera 1), %1, PLACAR"_s;
}

void tst_EngineNdi::namesTheSources()
{
    QFETCH(QStringList, sources);
    QFETCH(const QString, line);

    QList<int> timeouts;
    setNdiSourceScan([&](int timeoutMs) {
        timeouts << timeoutMs;
        return sources;
    });
    EngineBench bench;
    bench->clearLog();
    QCOMPARE(bench.ask<QStringList>("ndiSources"), sources);
    QCOMPARE(bench.ask<QStringList>("ndiSources", 700), sources);
    QCOMPARE(timeouts, QList<int>({1500, 700}));
    QCOMPARE(bench.logLines(), QStringList(2, line));
}

CORVANE_TEST(tst_EngineNdi, QCoreApplication)
#include "tst_EngineNdi.moc"
