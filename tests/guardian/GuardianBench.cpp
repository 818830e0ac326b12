#include "tests/guardian/GuardianBench.h"

#include "tests/support/TestSupport.h"

#include <QFile>
#include <QTimer>

namespace corvane::test {

using namespace Qt::StringLiterals;

GuardianBench::GuardianBench()
{
    qputenv("CORVANE_UPDATE_FEED", "https://feed.example/latest.json");
}

void GuardianBench::guard(const guardian::GuardianSettings &settings)
{
    m_guardian.reset();
    m_lines.clear();
    m_exitCode = -1;
    m_guardian = std::make_unique<guardian::Guardian>(settings, [this](const auto &answer) {
        QTimer::singleShot(0, this, [this, answer] { answer(manifest, feedError); });
    });
    connect(m_guardian.get(), &guardian::Guardian::logged, this,
            [this](const QString &line) { m_lines << line; });
    connect(m_guardian.get(), &guardian::Guardian::finished, this,
            [this](int exitCode) { m_exitCode = exitCode; });
    m_guardian->run();
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
    return waitUntil([&] { return QFile::exists(runtimeDir() + "/.heartbeat"_L1); });
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

} // namespace corvane::test
