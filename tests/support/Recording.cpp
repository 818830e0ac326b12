#include "tests/support/Recording.h"

#include "tests/support/ToolPath.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QProcess>

#include <algorithm>

namespace corvane::test {

using namespace Qt::StringLiterals;

Recording inspectRecording(const QString &path)
{
    Recording result;
    QProcess ffprobe;
    ffprobe.start(machineTool(u"ffprobe"_s),
                  {u"-v"_s, u"error"_s, u"-show_entries"_s,
                   u"stream=codec_type,codec_name:packet=codec_type,dts_time"_s, u"-of"_s, u"json"_s, path});
    if (!ffprobe.waitForFinished(30000)) {
        result.error = ffprobe.errorString();
        return result;
    }
    const QJsonObject found = QJsonDocument::fromJson(ffprobe.readAllStandardOutput()).object();
    result.error = QString::fromUtf8(ffprobe.readAllStandardError()).trimmed();

    const QJsonArray streams = found["streams"_L1].toArray();
    for (const QJsonValue stream : streams) {
        const QString type = stream["codec_type"_L1].toString();
        if (type == "video"_L1)
            result.videoCodec = stream["codec_name"_L1].toString();
        else if (type == "audio"_L1)
            result.audioCodec = stream["codec_name"_L1].toString();
    }

    QList<double> times;
    const QJsonArray packets = found["packets"_L1].toArray();
    for (const QJsonValue packet : packets) {
        if (packet["codec_type"_L1].toString() == "video"_L1 && packet["dts_time"_L1].isString())
            times << packet["dts_time"_L1].toString().toDouble();
    }
    if (times.isEmpty())
        return result;
    std::sort(times.begin(), times.end());
    result.seconds = times.constLast() - times.constFirst();
    for (qsizetype i = 1; i < times.size(); ++i)
        result.largestGap = std::max(result.largestGap, times.at(i) - times.at(i - 1));
    return result;
}

} // namespace corvane::test
