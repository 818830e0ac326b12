#include "engine/host/EnvironmentProbe.h"
#include "tests/support/Runner.h"

#include <QProcess>
#include <QRegularExpression>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

QString answerOf(const QString &ffmpeg, const QString &question)
{
    QProcess process;
    process.start(ffmpeg, {u"-hide_banner"_s, question}, QIODevice::ReadOnly);
    return process.waitForFinished() ? QString::fromUtf8(process.readAllStandardOutput()) : QString();
}

} // namespace

/// The probe against the installed tools.
class tst_EnvironmentProbeMachine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsTheToolsOfThisMachine();
};

void tst_EnvironmentProbeMachine::findsTheToolsOfThisMachine()
{
    const EnvironmentProbe found = EnvironmentProbe::run();
    if (found.ffmpegPath.isEmpty())
        QSKIP("this machine has no ffmpeg");
    QVERIFY(found.ffmpegPath.endsWith(u"/ffmpeg"_s) || found.ffmpegPath.endsWith(u"/ffmpeg.exe"_s));

    // What this ffmpeg has is up to whoever built it.
    const QString encoders = answerOf(found.ffmpegPath, u"-encoders"_s);
    QVERIFY(encoders.contains(u"------"_s));
    for (const QString &name : {u"libx264"_s, u"libx265"_s, u"h264_nvenc"_s, u"h264_qsv"_s, u"h264_amf"_s,
                                u"h264_videotoolbox"_s, u"libsvtav1"_s})
        QVERIFY2(found.availableEncoders.contains(name) == encoders.contains(name), qPrintable(name));
    static const QRegularExpression srt(u"^\\s*srt\\s*$"_s, QRegularExpression::MultilineOption);
    QCOMPARE(found.ffmpegHasSrt, srt.match(answerOf(found.ffmpegPath, u"-protocols"_s)).hasMatch());
    QVERIFY(found.srtAvailable || !found.ffmpegHasSrt);
}

CORVANE_TEST(tst_EnvironmentProbeMachine, QCoreApplication)
#include "tst_EnvironmentProbeMachine.moc"
