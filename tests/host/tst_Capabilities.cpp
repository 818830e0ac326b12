#include "engine/host/Capabilities.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace corvane;

/// Capabilities of the platforms built today: they have none of them.
class tst_Capabilities : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hasNoRuntimes();
    void findsNoDevices();
    void neitherLocksMemoryNorFeelsHeat();
    void answersForWhatAPortBrings(); // last: what it sets and resets isn't what holds at first
};

void tst_Capabilities::hasNoRuntimes()
{
    QVERIFY(!ndiRuntimeAvailable());
    QVERIFY(!decklinkRuntimeAvailable());
}

void tst_Capabilities::findsNoDevices()
{
    for (const int timeoutMs : {1500, 0, -1})
        QCOMPARE(ndiSourceScan(timeoutMs), QStringList());
    QCOMPARE(decklinkDeviceScan(), QStringList());
}

void tst_Capabilities::neitherLocksMemoryNorFeelsHeat()
{
    QVERIFY(!lockProcessMemory());
    QCOMPARE(thermalState(), 0);
}

void tst_Capabilities::answersForWhatAPortBrings()
{
    setNdiRuntimeAvailable(true);
    QVERIFY(ndiRuntimeAvailable());
    QVERIFY(!decklinkRuntimeAvailable());
    setNdiSourceScan([](int timeoutMs) { return QStringList{QString::number(timeoutMs)}; });
    QCOMPARE(ndiSourceScan(1500), QStringList{QStringLiteral("1500")});
    QCOMPARE(decklinkDeviceScan(), QStringList());
    setNdiSourceScan({});
    setNdiRuntimeAvailable(false);

    setDecklinkRuntimeAvailable(true);
    setDecklinkDeviceScan([] { return QStringList{QStringLiteral("DeckLink")}; });
    QVERIFY(decklinkRuntimeAvailable());
    QVERIFY(!ndiRuntimeAvailable());
    QCOMPARE(decklinkDeviceScan(), QStringList{QStringLiteral("DeckLink")});
    QCOMPARE(ndiSourceScan(0), QStringList());
    setDecklinkDeviceScan({});
    setDecklinkRuntimeAvailable(false);

    for (const int level : {3, 1, 0}) {
        setThermalState(level);
        QCOMPARE(thermalState(), level);
    }
}

CORVANE_TEST(tst_Capabilities, corvane::test::NoApplication)
#include "tst_Capabilities.moc"
