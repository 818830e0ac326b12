#include "tests/guardian/GuardianBench.h"

#include "tests/support/Files.h"
#include "tests/support/TestSupport.h"

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace corvane::test {

using namespace Qt::StringLiterals;

GuardianBench::GuardianBench()
{
    qputenv("CORVANE_UPDATE_FEED", "https://feed.example/latest.json");
}

std::chrono::milliseconds GuardianBench::shortPatience()
{
    static const std::chrono::milliseconds oneRun = [] {
        const GuardedFolder folder;
        writeFile(folder.path(u"app/behaviour"_s), "leaves");
        QProcess run;
        run.setEnvironment(
            {"CORVANE_RUNTIME_DIR="_L1 + folder.runtimeDir(), "PATH="_L1 + qEnvironmentVariable("PATH")});
        QElapsedTimer clock;
        clock.start();
        run.start(folder.installation().programPath(), QStringList());
        return run.waitForFinished() ? std::chrono::milliseconds(clock.elapsed()) : std::chrono::seconds(10);
    }();
    constexpr std::chrono::milliseconds least(500);
    return std::max(least, 4 * oneRun);
}

void GuardianBench::guard(const guardian::GuardianSettings &settings)
{
    m_guardian.reset();
    m_lines.clear();
    m_exitCode = -1;
    m_guardian = std::make_unique<guardian::Supervisor>(settings, [this](const auto &answer) {
        ++feedQuestions;
        m_answer = answer;
        if (!feedWaits)
            QTimer::singleShot(0, this, &GuardianBench::answerFeed);
    });
    connect(m_guardian.get(), &guardian::Supervisor::logged, this, [this](const QString &line) {
        m_lines << line;
        if (onLine)
            onLine(line);
    });
    connect(m_guardian.get(), &guardian::Supervisor::finished, this,
            [this](int exitCode) { m_exitCode = exitCode; });
    m_guardian->run();
}

void GuardianBench::answerFeed()
{
    const guardian::ManifestAnswer answer = std::exchange(m_answer, nullptr);
    if (answer)
        answer(manifest, feedError);
}

void GuardianBench::startBySomebody(const QString &runtimeDirectory)
{
    const qsizetype before = fileLines(runtimeDirectory + "/starts"_L1).size();
    launchBySomebody(runtimeDirectory);
    QVERIFY(waitUntil([&] { return fileLines(runtimeDirectory + "/starts"_L1).size() > before; }));
}

void GuardianBench::launchBySomebody(const QString &runtimeDirectory)
{
    m_somebodysDirectory = runtimeDirectory;
    m_somebody.setEnvironment(
        {"CORVANE_RUNTIME_DIR="_L1 + runtimeDirectory, "PATH="_L1 + qEnvironmentVariable("PATH")});
    m_somebody.start(installation().programPath(), QStringList());
    QVERIFY(m_somebody.waitForStarted());
}

bool GuardianBench::somebodysRunLives() const
{
    return m_somebody.state() != QProcess::NotRunning;
}

void GuardianBench::endSomebodysRun()
{
    writeFile(m_somebodysDirectory + "/do-quit"_L1, {});
    QVERIFY(waitUntil([&] { return !somebodysRunLives(); }));
}

void GuardianBench::stageAndRequest(const QByteArray &version, const QByteArray &behaviour)
{
    stage(version, packageOf(version, behaviour));
    manifest = manifestOf(version);
    request();
}

bool GuardianBench::waitForLine(const QString &part) const
{
    return waitUntil([&] { return !m_lines.filter(part).isEmpty(); });
}

bool GuardianBench::waitForBeats() const
{
    return waitUntil([&] { return !contentsOf(runtimeDir() + "/.heartbeat"_L1).isEmpty(); });
}

bool GuardianBench::waitForStarts(qsizetype count) const
{
    return waitUntil([&] { return starts().size() >= count; });
}

bool GuardianBench::waitForFinish() const
{
    return waitUntil([&] { return m_exitCode >= 0; });
}

guardian::UpdateRecord GuardianBench::record() const
{
    return guardian::readRecord(installation().record());
}

void GuardianBenchTest::init()
{
    m_bench = std::make_unique<GuardianBench>();
}

void GuardianBenchTest::cleanup()
{
    if (QTest::currentTestFailed())
        qInfo().noquote() << m_bench->lines().join(u'\n');
    m_bench.reset();
}

} // namespace corvane::test
