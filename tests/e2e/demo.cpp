// Puts a test pattern on air: a real RTMP server on loopback, the engine driven by the operations that the
// window calls, the real ffmpeg. Leaves received.flv, ffprobe.json and log.txt in the folder given and says
// on the terminal what arrived. Exit code 0 only if h264 and aac arrived, at least 8 seconds of them.

#include "engine/Engine.h"
#include "tests/support/RtmpServer.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr int onAirMs = 10000;
constexpr double leastSeconds = 8;

void say(const QString &line)
{
    std::fputs(qUtf8Printable(line + u'\n'), stdout);
    std::fflush(stdout);
}

[[noreturn]] void fail(const QString &why)
{
    std::fputs(qUtf8Printable("demo: "_L1 + why + u'\n'), stderr);
    std::exit(1);
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QString stateOf(const Engine &engine)
{
    return engine.pipelines().constFirst().toMap().value(u"state"_s).toString();
}

/// From "+" to "■ Parar"; answers what went wrong, or nothing.
QString transmit(Engine &engine, const QString &url)
{
    const QString id = engine.addPipeline(QString());
    engine.addRtmpOutput(id, url);

    engine.startPipeline(id);
    const bool progressing = test::waitUntil(
        [&] { return engine.log().contains("[stats] "_L1) || stateOf(engine) == "failed"_L1; }, 30000);
    if (!progressing || stateOf(engine) != "running"_L1)
        return u"the transmission didn't come up"_s;

    say(u"on air for %1 seconds: %2"_s.arg(QString::number(onAirMs / 1000), url));
    bool over = false;
    QTimer::singleShot(onAirMs, Qt::PreciseTimer, &engine, [&over] { over = true; });
    test::waitUntil([&] { return over || stateOf(engine) != "running"_L1; }, 2 * onAirMs);
    if (stateOf(engine) != "running"_L1)
        return u"the transmission didn't stay up"_s;

    engine.stopPipeline(id);
    return stateOf(engine) == "stopped"_L1 ? QString() : u"the transmission didn't stop"_s;
}

QJsonObject inspect(const QString &recording, QByteArray &json)
{
    QProcess ffprobe;
    ffprobe.start(u"ffprobe"_s, {u"-v"_s, u"error"_s, u"-show_format"_s, u"-show_streams"_s, u"-of"_s,
                                 u"json"_s, recording});
    if (!ffprobe.waitForFinished(30000))
        fail(u"ffprobe: "_s + ffprobe.errorString());
    json = ffprobe.readAllStandardOutput();
    return QJsonDocument::fromJson(json).object();
}

QJsonObject streamOf(const QJsonObject &probe, const QString &type)
{
    const QJsonArray streams = probe.value("streams"_L1).toArray();
    for (const QJsonValue stream : streams) {
        if (stream["codec_type"_L1].toString() == type)
            return stream.toObject();
    }
    return {};
}

/// The line that a start leaves in the log, without its time stamp and with the program's path.
QString commandLine(const Engine &engine)
{
    const QStringList lines = engine.log().split(u'\n');
    for (const QString &line : lines) {
        if (const qsizetype at = line.indexOf(" ffmpeg -"_L1); at >= 0)
            return engine.ffmpegPath() + line.sliced(at + 7);
    }
    return {};
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2)
        fail(u"usage: demo <folder>"_s);
    const QDir folder(arguments.at(1));
    if (!folder.mkpath(u"."_s))
        fail(u"can't make the folder %1"_s.arg(folder.path()));

    test::RtmpServer server;
    if (!server.start())
        fail("no RTMP server: "_L1 + server.error());

    Engine engine;
    const QString trouble = transmit(engine, server.url(u"demo"_s));
    engine.stopAll(); // whatever went wrong, no child is left behind
    server.stop();
    if (!writeFile(folder.filePath(u"log.txt"_s), engine.log().toUtf8()))
        fail(u"can't write log.txt"_s);
    if (!trouble.isEmpty())
        fail(trouble + "; the engine's log:\n"_L1 + engine.log());

    const QString received = folder.filePath(u"received.flv"_s);
    QFile::remove(received);
    if (!QFile::copy(server.recording(u"demo"_s), received))
        fail(u"the server recorded nothing"_s);
    QByteArray json;
    const QJsonObject probe = inspect(received, json);
    if (!writeFile(folder.filePath(u"ffprobe.json"_s), json))
        fail(u"can't write ffprobe.json"_s);

    const QJsonObject video = streamOf(probe, u"video"_s);
    const QJsonObject audio = streamOf(probe, u"audio"_s);
    const double seconds = probe["format"_L1]["duration"_L1].toString().toDouble();
    say(u"video     %1, %2x%3"_s.arg(video["codec_name"_L1].toString(),
                                     QString::number(video["width"_L1].toInt()),
                                     QString::number(video["height"_L1].toInt())));
    say(u"audio     %1, %2 Hz"_s.arg(audio["codec_name"_L1].toString(), audio["sample_rate"_L1].toString()));
    say(u"received  %1 s, %2 bytes"_s.arg(QString::number(seconds, 'f', 2),
                                          QString::number(QFile(received).size())));
    say("command   "_L1 + commandLine(engine));
    say("files     "_L1 + QDir::current().relativeFilePath(folder.path()) +
        "/: received.flv, ffprobe.json, log.txt"_L1);

    if (video["codec_name"_L1].toString() != "h264"_L1 || audio["codec_name"_L1].toString() != "aac"_L1)
        fail(u"what arrived isn't h264 and aac"_s);
    if (seconds < leastSeconds)
        fail(u"less than %1 seconds arrived"_s.arg(leastSeconds));
    return 0;
}
