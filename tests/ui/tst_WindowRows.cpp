#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/ui/LookTable.h"

#include <QFile>
#include <QQmlContext>
#include <QQmlProperty>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// A row's view of its pipeline's state and figures, and its stop button.
class tst_WindowRows : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void states_data();
    void states();
    void outputsAreCounted();
    void telemetry_data();
    void telemetry();
    void telemetryForms_data();
    void telemetryForms();
    void levelOfAFallingStream();
    void warningStandsWhole();
    void refreshEverySecond();
    void stopTakesTwoClicks();
    void stopWhileStarting();
    void confirmationTimesOut();
    void rebuildDropsTheConfirmation();
    void lateRenewalDropsTheConfirmation();
    void clickOnStopDoesNotSelect();
    void stopOfAVanishedPipeline();

private:
    [[nodiscard]] QQuickItem *inRow(const QString &name, int index = 0) const
    {
        return m_ui->item(name, m_ui->row(index));
    }
    [[nodiscard]] QString textInRow(const QString &name, int index = 0) const
    {
        QQuickItem *item = inRow(name, index);
        return item ? lookText(item, u"text"_s) : u"(none)"_s;
    }
    [[nodiscard]] Pipeline::State state(const QString &id) const { return m_ui->pipeline(id)->state(); }
    /// Puts a pipeline with one output "fake:" and `steps` on air, and waits for its row. An output was added
    /// to it, so its figures don't renew the rows: those stay until its state changes.
    QString onAir(const QString &steps);
    /// Clicks the stop button once it is where the layout wants it: it changes its width when armed.
    void clickStop();
    /// Triggers a change of the list, which recreates its rows.
    void rebuild();
    void bringToState(const QString &name, const QString &id);

    std::unique_ptr<Interface> m_ui;
};

void tst_WindowRows::init()
{
    m_ui = std::make_unique<Interface>();
}

void tst_WindowRows::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
}

QString tst_WindowRows::onAir(const QString &steps)
{
    QString id = m_ui->addFake(steps);
    m_ui->engine().startPipeline(id);
    [&] {
        QTRY_COMPARE(state(id), Pipeline::State::Running);
        m_ui->awaitRows();
        QTRY_VERIFY(inRow(u"rowStopButton"_s));
    }();
    return id;
}

void tst_WindowRows::clickStop()
{
    m_ui->awaitRows();
    QTRY_VERIFY(inRow(u"rowStopButton"_s));
    const auto placed = [this] {
        const QQuickItem *button = inRow(u"rowStopButton"_s);
        const QQuickItem *column = inRow(u"plCol"_s);
        return button->width() == button->implicitWidth() && column->width() == 260.0 &&
               button->mapToItem(column, QPointF(button->width(), 0)).x() == column->width();
    };
    QTRY_VERIFY(placed());
    m_ui->click(inRow(u"rowStopButton"_s));
}

void tst_WindowRows::rebuild()
{
    const QPointer<QQuickItem> former = m_ui->row(0);
    m_ui->engine().addPipeline({});
    QTRY_VERIFY(!former && m_ui->row(0));
    QTRY_VERIFY(m_ui->row(0)->height() > 0);
}

// --- States

void tst_WindowRows::states_data()
{
    QTest::addColumn<QString>("dot");
    QTest::addColumn<QString>("statusLine");
    QTest::addColumn<bool>("telemetryLine");
    QTest::addColumn<bool>("stopButton");

    QTest::newRow("stopped") << u"#5e5e66"_s << u"stopped · 1 saída(s)"_s << false << false;
    QTest::newRow("starting") << u"#f0c040"_s << u"starting · 1 saída(s)"_s << false << true;
    QTest::newRow("running") << u"#4ecdc4"_s << u"running · 1 saída(s)"_s << true << true;
    QTest::newRow("failed") << u"#e05555"_s << u"failed · 0 saída(s)"_s << false << false;
}

void tst_WindowRows::bringToState(const QString &name, const QString &id)
{
    if (name == "starting"_L1)
        QVERIFY(QFile::remove(m_ui->engine().ffmpegPath())); // one that can't be launched leaves it starting
    if (name == "failed"_L1)
        m_ui->engine().clearOutputs(id);
    if (name != "stopped"_L1)
        m_ui->engine().startPipeline(id);
    QTRY_COMPARE(stateName(state(id)), name);
}

void tst_WindowRows::states()
{
    const QString name = QString::fromUtf8(QTest::currentDataTag());
    const QString id = m_ui->addFake(u"progress"_s);
    bringToState(name, id);
    QTRY_COMPARE(textInRow(u"statusLine"_s).section(u' ', 0, 0), name);
    QTEST(lookText(inRow(u"statusDot"_s), u"color"_s), "dot");
    QTEST(textInRow(u"statusLine"_s), "statusLine");
    QTEST(inRow(u"telemetryLine"_s)->isVisible(), "telemetryLine");
    QTEST(inRow(u"rowStopButton"_s) != nullptr, "stopButton");
    QVERIFY(inRow(u"nameLabel"_s)->isVisible());
}

void tst_WindowRows::outputsAreCounted()
{
    const QString id = m_ui->engine().addPipeline({});
    for (int outputs = 0; outputs < 3; ++outputs) {
        QTRY_COMPARE(textInRow(u"statusLine"_s), u"stopped · %1 saída(s)"_s.arg(outputs));
        m_ui->engine().addRtmpOutput(id, u"rtmp://host/live"_s);
    }
    m_ui->engine().setOutputEnabled(id, 0, false); // counted all the same
    QTRY_COMPARE(textInRow(u"statusLine"_s), u"stopped · 3 saída(s)"_s);
}

// --- Figures

void tst_WindowRows::telemetry_data()
{
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QString>("text");

    const auto line = [](const char *bytes) { return "stderr="_L1 + stepText(bytes); };
    QTest::newRow("a healthy run") << u"progress=1"_s << u"30fps · 6012kb/s · RTT 0ms"_s;
    QTest::newRow("rounded up") << line("frame=1 fps=59.94 bitrate=5999.6kbits/s\n")
                                << u"60fps · 6000kb/s · RTT 0ms"_s;
    QTest::newRow("rounded down") << line("frame=1 fps=29.4 bitrate=300.49kbits/s\n")
                                  << u"29fps · 300kb/s · RTT 0ms"_s;
    QTest::newRow("no bit rate yet") << line("frame=1 fps=25 bitrate=N/A\n") << u"25fps · 0kb/s · RTT 0ms"_s;
    QTest::newRow("drops of the encoder don't show")
        << line("frame=1 fps=25 bitrate=10kbits/s drop=99\n") << u"25fps · 10kb/s · RTT 0ms"_s;
    QTest::newRow("a number that is none")
        << line("frame=1 fps=1.2.3 bitrate=5.5.5kbits/s\n") << u"0fps · 0kb/s · RTT 0ms"_s;
}

void tst_WindowRows::telemetry()
{
    QFETCH(const QString, steps);
    const QString id = onAir(steps);
    QTRY_VERIFY(m_ui->pipeline(id)->telemetry().valid);
    rebuild();
    QTEST(textInRow(u"telemetryLine"_s), "text");
    QCOMPARE(lookText(inRow(u"telemetryLine"_s), u"color"_s), u"#4ecdc4"_s);
}

void tst_WindowRows::telemetryForms_data()
{
    QTest::addColumn<double>("rtt");
    QTest::addColumn<int>("sndDrop");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("colour");

    const QString accent = u"#4ecdc4"_s;
    const QString danger = u"#e05555"_s;
    QTest::newRow("nothing") << 0.0 << 0 << u"0fps · 0kb/s · RTT 0ms"_s << accent;
    QTest::newRow("a round trip, rounded") << 41.6 << 0 << u"0fps · 0kb/s · RTT 42ms"_s << accent;
    QTest::newRow("packets dropped") << 12.0 << 7 << u"0fps · 0kb/s · RTT 12ms · drop 7"_s << danger;
    QTest::newRow("one packet dropped") << 0.0 << 1 << u"0fps · 0kb/s · RTT 0ms · drop 1"_s << danger;
}

void tst_WindowRows::telemetryForms()
{
    QFETCH(const double, rtt);
    QFETCH(const int, sndDrop);
    const QString id = onAir(u"pause=60000"_s);
    // Nothing sets these two figures yet: the test writes them where their source will.
    auto &figures = const_cast<Telemetry &>(m_ui->pipeline(id)->telemetry());
    figures.rttMs = rtt;
    figures.sndDrop = sndDrop;
    rebuild();
    QTEST(textInRow(u"telemetryLine"_s), "text");
    QTEST(lookText(inRow(u"telemetryLine"_s), u"color"_s), "colour");
}

void tst_WindowRows::levelOfAFallingStream()
{
    const QString id = onAir(u"drops=100"_s);
    QTRY_COMPARE_WITH_TIMEOUT(m_ui->pipeline(id)->level(), 1, 30000);
    rebuild();
    QCOMPARE(textInRow(u"telemetryLine"_s), u"30fps · 6012kb/s · RTT 0ms · ⬇nível 1"_s);
    QCOMPARE(lookText(inRow(u"telemetryLine"_s), u"color"_s), u"#e05555"_s);

    const_cast<Telemetry &>(m_ui->pipeline(id)->telemetry()).sndDrop = 3;
    rebuild();
    QCOMPARE(textInRow(u"telemetryLine"_s), u"30fps · 6012kb/s · RTT 0ms · drop 3 · ⬇nível 1"_s);
}

// In a row as narrow as the sidebar allows, beside the armed button.
void tst_WindowRows::warningStandsWhole()
{
    const QString id = onAir(u"drops=100"_s);
    QTRY_COMPARE_WITH_TIMEOUT(m_ui->pipeline(id)->level(), 1, 30000);
    const_cast<Telemetry &>(m_ui->pipeline(id)->telemetry()).sndDrop = 123456;
    rebuild();
    const double before = m_ui->row(0)->height();
    QQuickItem *sidebar = m_ui->item(u"sidebar"_s);
    QVERIFY(QQmlProperty(sidebar, u"SplitView.preferredWidth"_s, qmlContext(sidebar)).write(220));
    QTRY_COMPARE(sidebar->width(), 220.0);
    m_ui->row(0)->setProperty("confirmingStop", true);
    const QQuickItem *line = inRow(u"telemetryLine"_s);
    QVERIFY(textInRow(u"telemetryLine"_s).endsWith(u"⬇nível 1"_s));
    QTRY_VERIFY(line->property("lineCount").toInt() > 1);
    QCOMPARE(lookText(inRow(u"telemetryLine"_s), u"truncated"_s), u"false"_s);
    QVERIFY(line->property("contentWidth").toReal() <= line->width());
    QTRY_VERIFY(m_ui->row(0)->height() > before);
    QTRY_COMPARE(m_ui->row(0)->height(), inRow(u"plCol"_s)->implicitHeight() + 16);
    QVERIFY(line->mapRectToItem(m_ui->row(0), line->boundingRect()).bottom() <= m_ui->row(0)->height());
}

void tst_WindowRows::refreshEverySecond()
{
    // A pipeline that has never been edited reports each second; the test writes its output into the record
    // directly.
    const QString id = m_ui->engine().addPipeline({});
    const auto figures = [](int fps) {
        return "stderr="_L1 + stepText("frame=1 fps=" + QByteArray::number(fps) + " bitrate=6000kbits/s\n");
    };
    OutputConfig output;
    output.url = u"fake:%1,pause=2500,%2"_s.arg(figures(25), figures(24));
    const_cast<PipelineConfig &>(m_ui->pipeline(id)->config()).outputs = {output};
    m_ui->engine().startPipeline(id);
    QTRY_COMPARE(textInRow(u"telemetryLine"_s), u"25fps · 6000kb/s · RTT 0ms"_s);

    // Neither the question nor the rename field survives the next figures.
    const QPointer<QQuickItem> former = m_ui->row(0);
    former->setProperty("confirmingStop", true);
    former->setProperty("renaming", true);
    QVERIFY(m_ui->item(u"renameField"_s));
    QTRY_COMPARE(textInRow(u"telemetryLine"_s), u"24fps · 6000kb/s · RTT 0ms"_s);
    QTRY_VERIFY(!former);
    QVERIFY(!m_ui->row(0)->property("confirmingStop").toBool());
    QVERIFY(!m_ui->row(0)->property("renaming").toBool());
    QVERIFY(m_ui->pipeline(id)->isTransmitting());
}

// --- Stop button

void tst_WindowRows::stopTakesTwoClicks()
{
    const QString id = onAir(u"progress"_s);
    const QPointer<QObject> timer = m_ui->object(u"confirmStopTimer"_s, m_ui->row(0));
    QVERIFY(timer);
    QCOMPARE(timer->property("interval").toInt(), 3000);
    QVERIFY(!timer->property("repeat").toBool());
    QCOMPARE(textInRow(u"rowStopButton"_s), u"■"_s);

    clickStop();
    QVERIFY(m_ui->row(0)->property("confirmingStop").toBool());
    QVERIFY2(timer, "the row was renewed");
    QVERIFY(timer->property("running").toBool());
    QCOMPARE(textInRow(u"rowStopButton"_s), u"Confirmar?"_s);
    QCOMPARE(lookText(inRow(u"rowStopButton"_s), u"font.pixelSize"_s), u"10"_s);
    QCOMPARE(lookText(inRow(u"rowStopButton"_s), u"implicitWidth"_s), u"72"_s);
    QCOMPARE(lookText(inRow(u"rowStopButton"_s), u"implicitHeight"_s), u"28"_s);
    QCOMPARE(lookText(inRow(u"rowStopButton"_s), u"Material.foreground"_s), u"#e05555"_s);
    QCOMPARE(lookText(inRow(u"rowStopButton"_s), u"background.border.color"_s), u"#e05555"_s);
    QVERIFY(lookText(inRow(u"rowStopButton"_s), u"background.border.width"_s).toInt() > 0);
    QCOMPARE(lookText(inRow(u"rowStopButton"_s), u"background.opacity"_s), u"1"_s);
    QCOMPARE(state(id), Pipeline::State::Running);

    clickStop();
    QCOMPARE(state(id), Pipeline::State::Stopped);
    QTRY_VERIFY(m_ui->row(0) && !inRow(u"rowStopButton"_s));
    QVERIFY(!m_ui->row(0)->property("confirmingStop").toBool());
}

void tst_WindowRows::stopWhileStarting()
{
    const QString id = m_ui->addFake(u"progress"_s);
    bringToState(u"starting"_s, id);
    clickStop();
    QCOMPARE(state(id), Pipeline::State::Starting);
    clickStop();
    QCOMPARE(state(id), Pipeline::State::Stopped);
}

void tst_WindowRows::confirmationTimesOut()
{
    const QString id = onAir(u"progress"_s);
    clickStop();
    const QPointer<QQuickItem> armed = m_ui->row(0);
    QVERIFY(armed->property("confirmingStop").toBool());
    QTRY_VERIFY_WITH_TIMEOUT(!armed || !armed->property("confirmingStop").toBool(), 20000);
    QVERIFY2(armed, "the row was renewed: its time is not over");
    QCOMPARE(textInRow(u"rowStopButton"_s), u"■"_s);
    QTRY_COMPARE(inRow(u"rowStopButton"_s)->width(), 32.0);

    clickStop(); // a first click again
    QVERIFY(m_ui->row(0)->property("confirmingStop").toBool());
    QCOMPARE(state(id), Pipeline::State::Running);
}

void tst_WindowRows::rebuildDropsTheConfirmation()
{
    const QString id = onAir(u"progress"_s);
    clickStop();
    QVERIFY(m_ui->row(0)->property("confirmingStop").toBool());
    rebuild();
    QVERIFY(!m_ui->row(0)->property("confirmingStop").toBool());
    clickStop();
    QVERIFY(m_ui->row(0)->property("confirmingStop").toBool());
    QCOMPARE(state(id), Pipeline::State::Running);
}

// The row on the screen is a tenth of a second old at most, and a click may arm it.
void tst_WindowRows::lateRenewalDropsTheConfirmation()
{
    const QString id = m_ui->addFake(u"progress"_s);
    m_ui->awaitRest();
    QObject *pace = m_ui->object(u"pace"_s);
    QVERIFY(pace->setProperty("interval", 60000)); // no turn but the one below
    m_ui->engine().startPipeline(id);
    QTRY_COMPARE(state(id), Pipeline::State::Running);
    QVERIFY(m_ui->window().property("rowsDue").toBool());
    QTRY_VERIFY(inRow(u"rowStopButton"_s) && inRow(u"rowStopButton"_s)->width() > 0);
    QVERIFY(textInRow(u"statusLine"_s).startsWith("starting"_L1));
    m_ui->click(inRow(u"rowStopButton"_s));
    QVERIFY(m_ui->row(0)->property("confirmingStop").toBool());

    QVERIFY(QMetaObject::invokeMethod(pace, "turn"));
    QTRY_VERIFY(textInRow(u"statusLine"_s).startsWith("running"_L1));
    QVERIFY(!m_ui->row(0)->property("confirmingStop").toBool());
    QCOMPARE(state(id), Pipeline::State::Running);
}

void tst_WindowRows::clickOnStopDoesNotSelect()
{
    onAir(u"progress"_s);
    clickStop();
    QCOMPARE(m_ui->selectedId(), QString());
}

void tst_WindowRows::stopOfAVanishedPipeline()
{
    const QString id = onAir(u"progress"_s);
    clickStop();
    {
        // Outdated rows: the list learns of the removal after the click.
        const QSignalBlocker unheard(m_ui->engine());
        m_ui->engine().removePipeline(id);
    }
    clickStop();
    QVERIFY(!m_ui->row(0)->property("confirmingStop").toBool());
    QVERIFY(m_ui->engine().pipelines().isEmpty());
}

CORVANE_TEST(tst_WindowRows, corvane::test::WindowApplication)
#include "tst_WindowRows.moc"
