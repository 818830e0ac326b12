#include "app/ScanOptions.h"
#include "engine/host/Capabilities.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <vector>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

const QByteArray ndiReport = "NDI suportado: não\nFontes NDI encontradas: 0\n";
const QByteArray decklinkReport = "DeckLink suportado: não\nDispositivos DeckLink: 0\n";
const QByteArray noReport; // null: the interface is to start

using Arguments = QList<QByteArray>;

} // namespace

class tst_ScanOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersTheLeftmostOption_data();
    void answersTheLeftmostOption();
    void namesWhatARuntimeFinds();
    void namesWhatADriverFinds();
};

void tst_ScanOptions::answersTheLeftmostOption_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QByteArray>("expected");

    const auto row = [](const char *name, const Arguments &arguments, const QByteArray &expected) {
        QTest::newRow(name) << arguments << expected;
    };
    row("ndi", {"corvane", "--ndi-scan"}, ndiReport);
    row("decklink", {"corvane", "--decklink-scan"}, decklinkReport);
    row("ndi before decklink", {"corvane", "--ndi-scan", "--decklink-scan"}, ndiReport);
    row("decklink before ndi", {"corvane", "--decklink-scan", "--ndi-scan"}, decklinkReport);
    row("the same option twice is one report", {"corvane", "--ndi-scan", "--ndi-scan"}, ndiReport);
    row("after other arguments", {"corvane", "-platform", "offscreen", "x", "--decklink-scan"},
        decklinkReport);
    row("before other arguments", {"corvane", "--ndi-scan", "--help"}, ndiReport);
    row("after an empty argument", {"corvane", "", "--ndi-scan"}, ndiReport);
    row("after the end-of-options mark", {"corvane", "--", "--ndi-scan"}, ndiReport);
    row("after bytes that are not UTF-8", {"corvane", "\xe3\xff", "--decklink-scan"}, decklinkReport);
    row("without a program name to skip", {"", "--ndi-scan"}, ndiReport);

    row("no arguments", {"corvane"}, noReport);
    row("not even a program name", {}, noReport);
    row("program name that reads like an option", {"--ndi-scan"}, noReport);
    row("program name that reads like the other option", {"--decklink-scan", "x"}, noReport);
    row("ndi in capitals", {"corvane", "--NDI-SCAN"}, noReport);
    row("decklink in mixed case", {"corvane", "--DeckLink-Scan"}, noReport);
    row("capitals are skipped like any other argument", {"corvane", "--NDI-SCAN", "--decklink-scan"},
        decklinkReport);
    row("one dash", {"corvane", "-ndi-scan"}, noReport);
    row("cut short", {"corvane", "--ndi-sca"}, noReport);
    row("with a value", {"corvane", "--ndi-scan=1"}, noReport);
    row("with a space round it", {"corvane", " --ndi-scan", "--decklink-scan "}, noReport);
    row("two options in one argument", {"corvane", "--ndi-scan --decklink-scan"}, noReport);
    row("another argument", {"corvane", "live.mp4"}, noReport);
}

void tst_ScanOptions::answersTheLeftmostOption()
{
    QFETCH(const Arguments, arguments);
    QFETCH(const QByteArray, expected);

    std::vector<const char *> argv;
    for (const QByteArray &argument : arguments)
        argv.push_back(argument.constData());
    argv.push_back(nullptr);

    const std::optional<QByteArray> report = scanReport(static_cast<int>(arguments.size()), argv.data());

    QCOMPARE(report.has_value(), !expected.isNull());
    QCOMPARE(report.value_or(QByteArray()), expected);
}

void tst_ScanOptions::namesWhatARuntimeFinds()
{
    setNdiRuntimeAvailable(true);
    QList<int> timeouts;
    setNdiSourceScan([&](int timeoutMs) {
        timeouts << timeoutMs;
        return QStringList{u"ESTUDIO (Câmera 1)"_s, u"100%s"_s};
    });
    const char *const arguments[] = {"corvane", "--ndi-scan"};
    const std::optional<QByteArray> report = scanReport(2, arguments);
    setNdiSourceScan({});
    setNdiRuntimeAvailable(false);
    QVERIFY(report);
    QCOMPARE(*report, QByteArray("NDI suportado: sim\nFontes NDI encontradas: 2\n"
                                 "  - ESTUDIO (Câmera 1)\n  - 100%s\n"));
    QCOMPARE(timeouts, QList<int>{1500});
}

void tst_ScanOptions::namesWhatADriverFinds()
{
    setDecklinkRuntimeAvailable(true);
    setDecklinkDeviceScan([] { return QStringList{u"DeckLink Mini (Câmera 1)"_s, u"100%s"_s}; });
    const char *const arguments[] = {"corvane", "--decklink-scan"};
    const std::optional<QByteArray> report = scanReport(2, arguments);
    const char *const others[] = {"corvane", "--ndi-scan"};
    const std::optional<QByteArray> otherReport = scanReport(2, others);
    setDecklinkDeviceScan({});
    setDecklinkRuntimeAvailable(false);
    QVERIFY(report);
    QCOMPARE(*report, QByteArray("DeckLink suportado: sim\nDispositivos DeckLink: 2\n"
                                 "  - DeckLink Mini (Câmera 1)\n  - 100%s\n"));
    QCOMPARE(otherReport.value_or(QByteArray()), ndiReport);
}

CORVANE_TEST(tst_ScanOptions, QCoreApplication)
#include "tst_ScanOptions.moc"
