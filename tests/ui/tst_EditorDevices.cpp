#include "engine/host/Capabilities.h"
#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"
#include "tests/ui/LookTable.h"

#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The window on machines with an NDI runtime or a DeckLink driver.
class tst_EditorDevices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void shownWithARuntime_data();
    void shownWithARuntime();
    void ndiSourcesAreAskedAtEachPress();
    void ndiSourceIsSentAsOneMap();
    void ndiPickerKeepsItsWords();
    void decklinkDevicesAreAskedOnce();
    void decklinkDeviceIsSentAsOneMap();

private:
    /// Opens the page "Fonte" on a fresh pipeline.
    void open();

    std::unique_ptr<EditorBench> m_ui;
    QString m_id;
    QStringList m_sources;
    QList<int> m_scans; ///< times granted to each scan for NDI sources, in milliseconds
};

void tst_EditorDevices::init()
{
    m_sources = {u"ESTUDIO (Câmera 1)"_s, u"ESTUDIO (Câmera 2)"_s};
    m_scans.clear();
    setNdiRuntimeAvailable(true);
    setNdiSourceScan([this](int timeoutMs) {
        m_scans << timeoutMs;
        return m_sources;
    });
    setDecklinkRuntimeAvailable(true);
    setDecklinkDeviceScan([] { return QStringList{u"DeckLink Mini (1)"_s, u"DeckLink Mini (2)"_s}; });
}

void tst_EditorDevices::cleanup()
{
    if (m_ui)
        QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
    setNdiSourceScan({});
    setNdiRuntimeAvailable(false);
    setDecklinkDeviceScan({});
    setDecklinkRuntimeAvailable(false);
}

void tst_EditorDevices::open()
{
    m_ui = std::make_unique<EditorBench>();
    m_id = m_ui->addUnusual();
    m_ui->openTab(0);
}

void tst_EditorDevices::shownWithARuntime_data()
{
    QTest::addColumn<bool>("ndi");
    QTest::addColumn<bool>("decklink");

    QTest::newRow("both") << true << true;
    QTest::newRow("NDI alone") << true << false;
    QTest::newRow("DeckLink alone") << false << true;
    QTest::newRow("none") << false << false;
}

void tst_EditorDevices::shownWithARuntime()
{
    QFETCH(const bool, ndi);
    QFETCH(const bool, decklink);
    setNdiRuntimeAvailable(ndi);
    setDecklinkRuntimeAvailable(decklink);
    open();

    QCOMPARE(m_ui->isShown(u"ndiPicker"_s), ndi);
    QCOMPARE(m_ui->isShown(u"decklinkCaption"_s), decklink);
    QCOMPARE(m_ui->isShown(u"decklinkPicker"_s), decklink);
    const auto dot = [&](const QString &chip) {
        return lookText(find(*m_ui, chip + "/chipDot"_L1), u"color"_s);
    };
    QCOMPARE(dot(u"chipNdi"_s), ndi ? u"#4ecdc4"_s : u"#e05555"_s);
    QCOMPARE(dot(u"chipDecklink"_s), decklink ? u"#4ecdc4"_s : u"#e05555"_s);
    if (ndi)
        QTRY_COMPARE(m_ui->value(u"ndiPicker"_s, u"width"_s).toInt(), 180);
    if (decklink)
        QCOMPARE(m_ui->text(u"decklinkCaption"_s), u"DeckLink device"_s);
}

void tst_EditorDevices::ndiSourcesAreAskedAtEachPress()
{
    open();
    QCOMPARE(m_scans, QList<int>());
    QCOMPARE(m_ui->value(u"ndiPicker"_s, u"count"_s).toInt(), 0);

    m_ui->click(u"ndiPicker"_s);
    QCOMPARE(m_scans, QList({1500}));
    QCOMPARE(m_ui->value(u"ndiPicker"_s, u"count"_s).toInt(), 2);
    m_ui->press(Qt::Key_Escape);
    auto *popup = m_ui->value(u"ndiPicker"_s, u"popup"_s).value<QObject *>();
    QTRY_VERIFY(!popup->property("visible").toBool());

    m_sources << u"PLACAR"_s;
    m_ui->click(u"ndiPicker"_s);
    QCOMPARE(m_scans, QList({1500, 1500}));
    QCOMPARE(m_ui->value(u"ndiPicker"_s, u"count"_s).toInt(), 3);
    m_ui->press(Qt::Key_Escape);
    QTRY_VERIFY(!popup->property("visible").toBool());
}

void tst_EditorDevices::ndiSourceIsSentAsOneMap()
{
    open();
    RecordWatch record(*m_ui, m_id);

    m_ui->choose(u"ndiPicker"_s, 1);

    QCOMPARE(m_ui->text(u"srcUriField"_s), u"ESTUDIO (Câmera 2)"_s);
    QCOMPARE(record.changes(), QStringList({u"source.kind 0"_s, u"source.uri ESTUDIO (Câmera 2)"_s}));
    QCOMPARE(record.edits(), 1);
    QCOMPARE(m_ui->value(u"srcKind"_s, u"currentText"_s).toString(), u"testpattern"_s); // reads nothing back
}

void tst_EditorDevices::ndiPickerKeepsItsWords()
{
    open();
    QCOMPARE(m_ui->value(u"ndiPicker"_s, u"displayText"_s).toString(), u"NDI…"_s);
    m_ui->choose(u"ndiPicker"_s, 0);
    QCOMPARE(m_ui->value(u"ndiPicker"_s, u"currentText"_s).toString(), u"ESTUDIO (Câmera 1)"_s);
    QCOMPARE(m_ui->value(u"ndiPicker"_s, u"displayText"_s).toString(), u"NDI…"_s);
}

void tst_EditorDevices::decklinkDevicesAreAskedOnce()
{
    open();
    const QString line = u"DeckLink: 2 dispositivo(s) — DeckLink Mini (1), DeckLink Mini (2)\n"_s;
    QCOMPARE(m_ui->engine().log().count(line), 1); // at the start of the window

    m_ui->select(m_ui->addUnusual());
    m_ui->openTab(1);
    m_ui->openTab(0);
    m_ui->choose(u"decklinkPicker"_s, 0);
    QCOMPARE(m_ui->engine().log().count(line), 1);
}

void tst_EditorDevices::decklinkDeviceIsSentAsOneMap()
{
    open();
    m_ui->choose(u"decklinkPicker"_s, 0); // is the shown one, but a choice all the same
    RecordWatch record(*m_ui, m_id);

    m_ui->choose(u"decklinkPicker"_s, 1);

    QCOMPARE(record.changes(), QStringList({u"source.uri DeckLink Mini (2)"_s}));
    QCOMPARE(record.edits(), 1);
    QCOMPARE(m_ui->config(m_id).source.kind, int(SourceKind::Decklink));
    QCOMPARE(m_ui->text(u"srcUriField"_s), QString());
}

CORVANE_TEST(tst_EditorDevices, corvane::test::WindowApplication)
#include "tst_EditorDevices.moc"
