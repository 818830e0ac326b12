#include "engine/PipelineStore.h"
#include "tests/support/Runner.h"
#include "tests/support/SettingsSandbox.h"

#include <QSettings>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QSettings::SettingsMap written; ///< the store in memory, with the types that were given

bool readMemory(QIODevice & /*device*/, QSettings::SettingsMap & /*map*/)
{
    return true;
}

bool writeMemory(QIODevice &device, const QSettings::SettingsMap &map)
{
    written = map;
    return device.write("kept in memory\n") > 0;
}

/// Replaces the default store by one in memory that keeps the types written into it.
class TypedStore
{
public:
    TypedStore()
    {
        static const QSettings::Format format =
            QSettings::registerFormat(u"typed"_s, readMemory, writeMemory);
        written.clear();
        QSettings::setDefaultFormat(format);
    }
    ~TypedStore() { QSettings::setDefaultFormat(QSettings::NativeFormat); }
    Q_DISABLE_COPY_MOVE(TypedStore)
};

PipelineConfig record(const QString &id, const QString &name = u"Teste"_s)
{
    PipelineConfig config;
    config.id = id;
    config.name = name;
    return config;
}

QStringList ids(const QList<PipelineConfig> &configs)
{
    QStringList all;
    for (const PipelineConfig &config : configs)
        all << config.id;
    return all;
}

/// A record in which nothing has its default.
PipelineConfig changedThroughout()
{
    PipelineConfig config;
    config.id = u"0badcafe"_s;
    config.name = u"Câmera 1"_s;
    config.source = {SourceKind::File, u"/v/a b.mp4"_s, 1280, 720, 60, true, u"DVS"_s, u"0,1"_s, u"/pipe"_s};
    config.scaler = {ScalerKind::Lanczos, 640, 360};
    config.encoder = {
        VideoCodec::Hevc, HwAccel::Nvenc, EncoderPreset::Slow, 2500, 4, false, true, u"opus"_s, 96};
    config.outputs = QList<OutputConfig>(3);
    config.autoRestart = false;
    config.restart = {false, 1, 2, 3, 4, 5};
    return config;
}

} // namespace

/// The rows that a save writes, and the records that a load reads from them.
class tst_PipelineStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void beginsEmpty();
    void writesTheseKeysAndTypes();
    void writesOneRowToARecordInOrder();
    void bringsBackWhatIsStored();
    void forgetsEverythingElse();
    void keepsTextsAsTheyStand_data();
    void keepsTextsAsTheyStand();
    void keepsNumbersAsTheyStand_data();
    void keepsNumbersAsTheyStand();
    void leavesRowsBehindTheSize();
    void growsOverLeftovers();
    void endsAtSizeZero();
    void leavesOtherSettingsAlone();
};

void tst_PipelineStore::beginsEmpty()
{
    const SettingsSandbox sandbox;
    QCOMPARE(PipelineStore::load().size(), 0);
    QCOMPARE(QSettings().allKeys(), QStringList()); // a load writes nothing
}

void tst_PipelineStore::writesTheseKeysAndTypes()
{
    const SettingsSandbox sandbox;
    const TypedStore store;

    PipelineStore::save({changedThroughout()});

    const QSettings::SettingsMap expected{
        {u"pipelines/1/id"_s, u"0badcafe"_s}, {u"pipelines/1/name"_s, u"Câmera 1"_s},
        {u"pipelines/1/sourceKind"_s, 5},     {u"pipelines/1/sourceUri"_s, u"/v/a b.mp4"_s},
        {u"pipelines/1/bitrate"_s, 2500},     {u"pipelines/1/hw"_s, 2},
        {u"pipelines/1/outputs"_s, 3LL},
    };
    QCOMPARE(written.take(u"pipelines/size"_s).toInt(), 1); // its type is up to Qt
    QCOMPARE(written.keys(), expected.keys());
    for (auto entry = expected.begin(); entry != expected.end(); ++entry) {
        const QVariant value = written.value(entry.key());
        QVERIFY2(value.typeId() == entry.value().typeId(),
                 qPrintable(entry.key() + u' ' + QLatin1String(value.typeName())));
        QCOMPARE(value, entry.value());
    }
}

void tst_PipelineStore::writesOneRowToARecordInOrder()
{
    const SettingsSandbox sandbox;
    const TypedStore store;
    PipelineStore::save({record(u"c"_s), record(u"a"_s), record(u"b"_s), record(u"a"_s)});
    QCOMPARE(written.size(), 4 * 7 + 1);
    QCOMPARE(written.value(u"pipelines/size"_s).toInt(), 4);
    QStringList rows;
    for (int row = 1; row <= 4; ++row)
        rows << written.value(u"pipelines/%1/id"_s.arg(row)).toString();
    QCOMPARE(rows, QStringList({u"c"_s, u"a"_s, u"b"_s, u"a"_s}));
}

void tst_PipelineStore::bringsBackWhatIsStored()
{
    const SettingsSandbox sandbox;
    PipelineStore::save({changedThroughout(), record(u"cafe0002"_s, u""_s)});

    const QList<PipelineConfig> loaded = PipelineStore::load();
    QCOMPARE(ids(loaded), QStringList({u"0badcafe"_s, u"cafe0002"_s}));
    QCOMPARE(loaded.at(0).name, u"Câmera 1"_s);
    QCOMPARE(loaded.at(0).source.kind, 5);
    QCOMPARE(loaded.at(0).source.uri, u"/v/a b.mp4"_s);
    QCOMPARE(loaded.at(0).encoder.bitrate, 2500);
    QCOMPARE(loaded.at(0).encoder.hw, 2);
    QCOMPARE(loaded.at(1).name, QString());
    QCOMPARE(loaded.at(1).source.kind, 4);
    QCOMPARE(loaded.at(1).source.uri, QString());
    QCOMPARE(loaded.at(1).encoder.bitrate, 6000);
    QCOMPARE(loaded.at(1).encoder.hw, 0);
}

void tst_PipelineStore::forgetsEverythingElse()
{
    const SettingsSandbox sandbox;
    PipelineStore::save({changedThroughout()});
    QCOMPARE(QSettings().value(u"pipelines/1/outputs"_s).toInt(), 3);

    const PipelineConfig loaded = PipelineStore::load().value(0);
    QCOMPARE(loaded.source.width, 1920);
    QCOMPARE(loaded.source.height, 1080);
    QCOMPARE(loaded.source.fps, 30);
    QVERIFY(!loaded.source.danteEnabled);
    QCOMPARE(loaded.source.danteDevice, QString());
    QCOMPARE(loaded.source.channelMap, QString());
    QCOMPARE(loaded.source.ndiPipePath, QString());
    QCOMPARE(loaded.scaler.kind, 0);
    QCOMPARE(loaded.scaler.width, 0);
    QCOMPARE(loaded.scaler.height, 0);
    QCOMPARE(loaded.encoder.codec, 0);
    QCOMPARE(loaded.encoder.preset, 0);
    QCOMPARE(loaded.encoder.keyintSec, 2);
    QVERIFY(loaded.encoder.zeroLatency);
    QVERIFY(!loaded.encoder.bFrames);
    QCOMPARE(loaded.encoder.audioCodec, u"aac"_s);
    QCOMPARE(loaded.encoder.audioBitrate, 160);
    QVERIFY(loaded.outputs.isEmpty());
    QVERIFY(loaded.autoRestart);
    QVERIFY(loaded.restart.enabled);
    QCOMPARE(loaded.restart.initialBackoffMs, 1000);
    QCOMPARE(loaded.restart.maxBackoffMs, 30000);
    QCOMPARE(loaded.restart.maxRestartsInWindow, 6);
    QCOMPARE(loaded.restart.windowSec, 120);
    QCOMPARE(loaded.restart.hangTimeoutMs, 8000);

    // The count stays as it was until the next save.
    QCOMPARE(QSettings().value(u"pipelines/1/outputs"_s).toInt(), 3);
    PipelineStore::save({loaded});
    QCOMPARE(QSettings().value(u"pipelines/1/outputs"_s).toInt(), 0);
}

void tst_PipelineStore::keepsTextsAsTheyStand_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("empty") << u""_s;
    QTest::newRow("blanks around") << u"  x  "_s;
    QTest::newRow("commas") << u"a, b,c"_s;
    QTest::newRow("semicolon, a comment elsewhere") << u"a;b"_s;
    QTest::newRow("equals sign and brackets") << u"[x]=y"_s;
    QTest::newRow("quotes and backslashes") << u"\"C:\\v\\n.mp4\""_s;
    QTest::newRow("line feeds and tabs") << u"a\r\nb\tc"_s;
    QTest::newRow("an at sign in front") << u"@Invalid()"_s;
    QTest::newRow("place markers") << u"%1 %20"_s;
    QTest::newRow("accents") << u"Transmissão — estúdio"_s;
    QTest::newRow("outside the basic plane") << u"\U0001F3A5 日本語"_s;
    QTest::newRow("a NUL inside") << QString::fromUtf8("a\0b", 3);
    QTest::newRow("digits alone") << u"0012"_s;
    QTest::newRow("10000 characters") << QString(10000, u'ç');
}

void tst_PipelineStore::keepsTextsAsTheyStand()
{
    QFETCH(QString, text);

    const SettingsSandbox sandbox;
    PipelineConfig config = record(text, text);
    config.source.uri = text;
    PipelineStore::save({config});

    const PipelineConfig loaded = PipelineStore::load().value(0);
    QCOMPARE(loaded.id, text);
    QCOMPARE(loaded.name, text);
    QCOMPARE(loaded.source.uri, text);
}

void tst_PipelineStore::keepsNumbersAsTheyStand_data()
{
    QTest::addColumn<int>("number");

    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -7;
    QTest::newRow("in no table") << 99;
    QTest::newRow("largest") << std::numeric_limits<int>::max();
    QTest::newRow("smallest") << std::numeric_limits<int>::min();
}

void tst_PipelineStore::keepsNumbersAsTheyStand()
{
    QFETCH(int, number);

    const SettingsSandbox sandbox;
    PipelineConfig config = record(u"a"_s);
    config.source.kind = number;
    config.encoder.bitrate = number;
    config.encoder.hw = number;
    PipelineStore::save({config});

    const PipelineConfig loaded = PipelineStore::load().value(0);
    QCOMPARE(loaded.source.kind, number);
    QCOMPARE(loaded.encoder.bitrate, number);
    QCOMPARE(loaded.encoder.hw, number);
}

void tst_PipelineStore::leavesRowsBehindTheSize()
{
    const SettingsSandbox sandbox;
    PipelineStore::save({record(u"a"_s), record(u"b"_s), record(u"c"_s, u"terceira"_s)});
    PipelineStore::save({record(u"a"_s), record(u"c"_s, u"terceira"_s)});

    const QSettings settings;
    QCOMPARE(settings.value(u"pipelines/size"_s).toInt(), 2);
    QCOMPARE(settings.value(u"pipelines/2/id"_s).toString(), u"c"_s);
    QCOMPARE(settings.value(u"pipelines/3/id"_s).toString(), u"c"_s);
    QCOMPARE(settings.value(u"pipelines/3/name"_s).toString(), u"terceira"_s);
    QCOMPARE(settings.allKeys().size(), 3 * 7 + 1);
    QCOMPARE(ids(PipelineStore::load()), QStringList({u"a"_s, u"c"_s}));
}

void tst_PipelineStore::growsOverLeftovers()
{
    const SettingsSandbox sandbox;
    PipelineConfig old = changedThroughout();
    PipelineStore::save({old, old});
    PipelineStore::save({});
    PipelineStore::save({record(u"a"_s), record(u"b"_s, u""_s)});

    // No value of the old row remains.
    const PipelineConfig loaded = PipelineStore::load().value(1);
    QCOMPARE(loaded.id, u"b"_s);
    QCOMPARE(loaded.name, QString());
    QCOMPARE(loaded.source.kind, 4);
    QCOMPARE(loaded.source.uri, QString());
    QCOMPARE(loaded.encoder.bitrate, 6000);
    QCOMPARE(loaded.encoder.hw, 0);
}

void tst_PipelineStore::endsAtSizeZero()
{
    const SettingsSandbox sandbox;
    PipelineStore::save({record(u"a"_s)});
    PipelineStore::save({});
    const QSettings settings;
    QVERIFY(settings.contains(u"pipelines/size"_s));
    QCOMPARE(settings.value(u"pipelines/size"_s).toInt(), 0);
    QCOMPARE(settings.value(u"pipelines/1/id"_s).toString(), u"a"_s);
    QCOMPARE(PipelineStore::load().size(), 0);
}

void tst_PipelineStore::leavesOtherSettingsAlone()
{
    const SettingsSandbox sandbox;
    {
        QSettings settings;
        settings.setValue(u"window/width"_s, 800);
        settings.setValue(u"pipelinesOld/1/id"_s, u"x"_s);
    }
    PipelineStore::save({record(u"a"_s)});
    PipelineStore::save({});
    QCOMPARE(QSettings().value(u"window/width"_s).toInt(), 800);
    QCOMPARE(QSettings().value(u"pipelinesOld/1/id"_s).toString(), u"x"_s);
}

CORVANE_TEST(tst_PipelineStore, QCoreApplication)
#include "tst_PipelineStore.moc"
