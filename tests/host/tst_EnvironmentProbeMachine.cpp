#include "engine/host/EnvironmentProbe.h"
#include "tests/support/Runner.h"

#include <QStandardPaths>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

/// The probe against the installed tools.
class tst_EnvironmentProbeMachine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsTheToolsOfThisMachine();
};

void tst_EnvironmentProbeMachine::findsTheToolsOfThisMachine()
{
    if (QStandardPaths::findExecutable(u"ffmpeg"_s).isEmpty())
        QSKIP("this machine has no ffmpeg");
    const EnvironmentProbe found = EnvironmentProbe::run();
    QVERIFY(found.ffmpegPath.endsWith(u"/ffmpeg"_s) || found.ffmpegPath.endsWith(u"/ffmpeg.exe"_s));
    QVERIFY(found.availableEncoders.contains(u"libx264"_s));
    QVERIFY(found.ffmpegHasSrt);
    QVERIFY(found.srtAvailable);
}

CORVANE_TEST(tst_EnvironmentProbeMachine, QCoreApplication)
#include "tst_EnvironmentProbeMachine.moc"
