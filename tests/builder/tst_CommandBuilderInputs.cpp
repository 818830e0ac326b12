#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

struct InputRow
{
    const char *name;
    int kind;
    bool silence; ///< brings a silent second input where Dante is off
    QString ndiPipePath;
    QStringList video; ///< for uri "fonte", 1280 by 720 at 25
};

const QString pipePath = u"\\\\.\\pipe\\corvane-ndi-cafe0001"_s;
const QStringList testPattern{u"-re"_s, u"-f"_s, u"lavfi"_s, u"-i"_s, u"testsrc=size=1280x720:rate=25"_s};
const QStringList silence{u"-f"_s, u"lavfi"_s, u"-i"_s,
                          u"anullsrc=channel_layout=stereo:sample_rate=48000"_s};

// The pipe path counts for NDI alone.
const InputRow inputRows[] = {
    {"NDI through ffmpeg",
     0,
     false,
     QString(),
     {u"-f"_s, u"libndi_newtek"_s, u"-flags"_s, u"low_delay"_s, u"-analyzeduration"_s, u"0"_s, u"-i"_s,
      u"fonte"_s}},
    {"NDI through the pipe",
     0,
     false,
     pipePath,
     {u"-f"_s, u"rawvideo"_s, u"-pixel_format"_s, u"uyvy422"_s, u"-video_size"_s, u"1280x720"_s,
      u"-framerate"_s, u"25"_s, u"-i"_s, u"\\\\.\\pipe\\corvane-ndi-cafe0001"_s}},
    {"SRT", 1, false, QString(), {u"-fflags"_s, u"nobuffer"_s, u"-i"_s, u"fonte"_s}},
    {"SRT with a pipe path", 1, false, pipePath, {u"-fflags"_s, u"nobuffer"_s, u"-i"_s, u"fonte"_s}},
    {"DeckLink", 2, false, QString(), {u"-f"_s, u"decklink"_s, u"-i"_s, u"fonte"_s}},
    {"DeckLink with a pipe path", 2, false, pipePath, {u"-f"_s, u"decklink"_s, u"-i"_s, u"fonte"_s}},
    {"capture device", 3, false, QString(), {u"-f"_s, u"dshow"_s, u"-i"_s, u"video=fonte"_s}},
    {"capture device with a pipe path", 3, false, pipePath, {u"-f"_s, u"dshow"_s, u"-i"_s, u"video=fonte"_s}},
    {"test pattern", 4, true, QString(), testPattern},
    {"test pattern with a pipe path", 4, true, pipePath, testPattern},
    {"file", 5, false, QString(), {u"-re"_s, u"-stream_loop"_s, u"-1"_s, u"-i"_s, u"fonte"_s}},
    {"file with a pipe path",
     5,
     false,
     pipePath,
     {u"-re"_s, u"-stream_loop"_s, u"-1"_s, u"-i"_s, u"fonte"_s}},
    {"one below the table", -1, false, QString(), testPattern},
    {"one above the table", 6, false, QString(), testPattern},
    {"far above the table", 99, false, pipePath, testPattern},
    {"greatest number", std::numeric_limits<int>::max(), false, QString(), testPattern},
    {"smallest number", std::numeric_limits<int>::min(), false, QString(), testPattern},
};

struct Dante
{
    const char *name;
    bool enabled;
    QString device;
    QString input; ///< the element after "-i"; empty: no Dante input
};

const Dante danteRows[] = {
    {"no Dante", false, QString(), QString()},
    {"a Dante device that is not on", false, u"DVS"_s, QString()},
    {"Dante, default device", true, QString(), u"audio=Dante Virtual Soundcard"_s},
    {"Dante, empty text", true, u""_s, u"audio=Dante Virtual Soundcard"_s},
    {"Dante, named device", true, u"DVS Recepção 1-2"_s, u"audio=DVS Recepção 1-2"_s},
};

SourceConfig sourceOf(int kind)
{
    SourceConfig source;
    source.kind = kind;
    source.uri = u"fonte"_s;
    source.width = 1280;
    source.height = 720;
    source.fps = 25;
    source.channelMap = u"1,0"_s;
    return source;
}

} // namespace

class tst_CommandBuilderInputs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyCombination_data();
    void everyCombination();
    void uriStandsAsItIs_data();
    void uriStandsAsItIs();
    void sizeAndRate_data();
    void sizeAndRate();
};

void tst_CommandBuilderInputs::everyCombination_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("ndiPipePath");
    QTest::addColumn<bool>("danteEnabled");
    QTest::addColumn<QString>("danteDevice");
    QTest::addColumn<QStringList>("video");
    QTest::addColumn<QStringList>("audio");

    for (const InputRow &row : inputRows) {
        for (const Dante &dante : danteRows) {
            QStringList audio;
            if (!dante.input.isEmpty())
                audio = QStringList{u"-f"_s, u"dshow"_s, u"-i"_s, dante.input};
            else if (row.silence)
                audio = silence;
            QTest::addRow("%s, %s", row.name, dante.name)
                << row.kind << row.ndiPipePath << dante.enabled << dante.device << row.video << audio;
        }
    }
}

void tst_CommandBuilderInputs::everyCombination()
{
    QFETCH(const int, kind);
    QFETCH(const QString, ndiPipePath);
    QFETCH(const bool, danteEnabled);
    QFETCH(const QString, danteDevice);

    SourceConfig source = sourceOf(kind);
    source.ndiPipePath = ndiPipePath;
    source.danteEnabled = danteEnabled;
    source.danteDevice = danteDevice;
    QTEST(CommandBuilder::inputArgs(source), "video");
    QTEST(CommandBuilder::audioInputArgs(source), "audio");
}

void tst_CommandBuilderInputs::uriStandsAsItIs_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("element");

    QTest::newRow("NDI: empty") << 0 << QString() << QString();
    QTest::newRow("NDI: name with blanks") << 0 << u"ESTÚDIO (Câmera 1)"_s << u"ESTÚDIO (Câmera 1)"_s;
    QTest::newRow("SRT: no parameter added")
        << 1 << u"srt://0.0.0.0:9000?mode=listener"_s << u"srt://0.0.0.0:9000?mode=listener"_s;
    QTest::newRow("SRT: empty") << 1 << QString() << QString();
    QTest::newRow("DeckLink: name with blanks")
        << 2 << u"DeckLink Mini Recorder"_s << u"DeckLink Mini Recorder"_s;
    QTest::newRow("capture: one element") << 3 << u"USB Camera"_s << u"video=USB Camera"_s;
    QTest::newRow("capture: empty") << 3 << QString() << u"video="_s;
    QTest::newRow("capture: percent sign and quotes") << 3 << u"%1 \"%2\""_s << u"video=%1 \"%2\""_s;
    QTest::newRow("file: path with blanks")
        << 5 << u"C:/Vídeos do dia/a b.mp4"_s << u"C:/Vídeos do dia/a b.mp4"_s;
    QTest::newRow("file: percent sign") << 5 << u"%1%2.mp4"_s << u"%1%2.mp4"_s;
    QTest::newRow("test pattern: not used") << 4 << u"rtmp://x"_s << u"testsrc=size=1280x720:rate=25"_s;
}

void tst_CommandBuilderInputs::uriStandsAsItIs()
{
    QFETCH(const int, kind);
    QFETCH(const QString, uri);
    QFETCH(const QString, element);

    SourceConfig source = sourceOf(kind);
    source.uri = uri;
    const QStringList args = CommandBuilder::inputArgs(source);
    QCOMPARE(args.at(args.size() - 2), u"-i"_s);
    QCOMPARE(args.last(), element);
}

void tst_CommandBuilderInputs::sizeAndRate_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("fps");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("rawSize");
    QTest::addColumn<QString>("rawRate");

    QTest::newRow("default") << 1920 << 1080 << 30 << u"testsrc=size=1920x1080:rate=30"_s << u"1920x1080"_s
                             << u"30"_s;
    QTest::newRow("no digit grouping")
        << 7680 << 4320 << 1000 << u"testsrc=size=7680x4320:rate=1000"_s << u"7680x4320"_s << u"1000"_s;
    QTest::newRow("nothing") << 0 << 0 << 0 << u"testsrc=size=0x0:rate=0"_s << u"0x0"_s << u"0"_s;
    QTest::newRow("negative") << -1 << -2 << -3 << u"testsrc=size=-1x-2:rate=-3"_s << u"-1x-2"_s << u"-3"_s;
}

void tst_CommandBuilderInputs::sizeAndRate()
{
    QFETCH(const int, width);
    QFETCH(const int, height);
    QFETCH(const int, fps);

    SourceConfig source;
    source.width = width;
    source.height = height;
    source.fps = fps;
    QTEST(CommandBuilder::inputArgs(source).last(), "pattern");

    source.kind = SourceKind::Ndi;
    source.ndiPipePath = pipePath;
    const QStringList args = CommandBuilder::inputArgs(source);
    QTEST(args.at(5), "rawSize");
    QTEST(args.at(7), "rawRate");
}

CORVANE_TEST(tst_CommandBuilderInputs, QCoreApplication)
#include "tst_CommandBuilderInputs.moc"
