#include "tests/engine/StoreTestSupport.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QFileInfo>

#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// Fields of a pipeline in a row: id, name, kind, source, bit rate, encoder family.
QVariantList rowOf(const PipelineConfig &config)
{
    return {config.id,        config.name, config.source.kind, config.source.uri, config.encoder.bitrate,
            config.encoder.hw};
}

using Rows = QList<QVariantList>;

const QString none;

} // namespace

/// The settings file itself: its bytes after a save, and the pipelines that a start restores from a file
/// written by others.
class tst_PipelineStoreFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hasTheseBytes();
    void isReadByItsOwnerAlone_data();
    void isReadByItsOwnerAlone();
    void takesAnyRow_data();
    void takesAnyRow();
    void reachesTheFirstOfEqualIds();
    void reachesAnEmptyId();
    void isLeftAsItStandsByALoad();
    void isAnEmptyStoreIfUnreadable_data();
    void isAnEmptyStoreIfUnreadable();
    void maybeADirectory();
};

void tst_PipelineStoreFile::hasTheseBytes()
{
    StoreBench bench;
    bench.start();
    const QString id = bench->addPipeline(u"Estudio"_s);
    bench->addRtmpOutput(id, u"rtmp://a/live/chave"_s);
    bench->addRtmpOutput(id, u"rtmp://b/live/chave"_s);
    bench->configureSource(id, {{u"kind"_s, u"file"_s}, {u"uri"_s, u"/v/a.mp4"_s}});
    bench->configureEncoder(id, {{u"bitrate"_s, 4500}, {u"hw"_s, u"nvenc"_s}});

    QByteArrayList lines = bench.bytes().split('\n');
    lines.removeAll(QByteArray());
    QCOMPARE(lines.takeFirst(), QByteArray("[pipelines]"));
    std::sort(lines.begin(), lines.end());
    QCOMPARE(lines, QByteArrayList({"1\\bitrate=4500", "1\\hw=2", "1\\id=" + id.toLatin1(), "1\\name=Estudio",
                                    "1\\outputs=2", "1\\sourceKind=5", "1\\sourceUri=/v/a.mp4", "size=1"}));
}

void tst_PipelineStoreFile::isReadByItsOwnerAlone_data()
{
    QTest::addColumn<QFile::Permissions>("before");
    QTest::addColumn<QFile::Permissions>("after");

    const QFile::Permissions owner = QFile::ReadOwner | QFile::WriteOwner;
    QTest::newRow("new file") << QFile::Permissions() << owner;
    QTest::newRow("file for everybody") << (owner | QFile::ReadGroup | QFile::ReadOther) << owner;
    QTest::newRow("file for a group") << (owner | QFile::ReadGroup | QFile::WriteGroup) << owner;
    QTest::newRow("file that is its owner's alone") << owner << owner;
}

void tst_PipelineStoreFile::isReadByItsOwnerAlone()
{
    QFETCH(const QFile::Permissions, before);

    StoreBench bench;
    if (before) {
        bench.write("[pipelines]\n1\\id=a\nsize=1\n");
        QVERIFY(QFile::setPermissions(bench.filePath(), before));
    }
    bench.start();
    const QString id = bench->addPipeline(u"Estudio"_s);
    bench->configureSource(id,
                           {{u"kind"_s, u"srt"_s}, {u"uri"_s, u"srt://h:1?passphrase=segredo-comprido"_s}});

    const QFile::Permissions everybody = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                         QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                         QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    QTEST(QFile::permissions(bench.filePath()) & everybody, "after");
    QVERIFY(bench.bytes().contains("segredo-comprido"));
}

void tst_PipelineStoreFile::takesAnyRow_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<Rows>("rows");

    const QVariantList defaults{none, none, 4, none, 6000, 0};
    QTest::newRow("nothing") << QByteArray() << Rows{};
    QTest::newRow("no size") << QByteArray("1\\id=a\n") << Rows{};
    QTest::newRow("size 0 before rows") << QByteArray("1\\id=a\nsize=0\n") << Rows{};
    QTest::newRow("negative size") << QByteArray("1\\id=a\nsize=-3\n") << Rows{};
    QTest::newRow("size that is no number") << QByteArray("1\\id=a\nsize=um\n") << Rows{};
    QTest::newRow("size as text") << QByteArray("1\\id=a\nsize=\"1\"\n")
                                  << Rows{{u"a"_s, none, 4, none, 6000, 0}};
    QTest::newRow("size alone") << QByteArray("size=2\n") << Rows{defaults, defaults};
    QTest::newRow("rows behind the size")
        << QByteArray("1\\id=a\n2\\id=b\n3\\id=c\nsize=2\n")
        << Rows{{u"a"_s, none, 4, none, 6000, 0}, {u"b"_s, none, 4, none, 6000, 0}};
    QTest::newRow("a gap between rows")
        << QByteArray("1\\id=a\n3\\id=c\nsize=3\n")
        << Rows{{u"a"_s, none, 4, none, 6000, 0}, defaults, {u"c"_s, none, 4, none, 6000, 0}};
    QTest::newRow("row 0") << QByteArray("0\\id=z\nsize=1\n") << Rows{defaults};
    QTest::newRow("everything")
        << QByteArray("1\\id=a\n1\\name=n\n1\\sourceKind=1\n1\\sourceUri=srt://h:1\n1\\bitrate=5\n1\\hw=3\n"
                      "1\\outputs=9\nsize=1\n")
        << Rows{{u"a"_s, u"n"_s, 1, u"srt://h:1"_s, 5, 3}};
    QTest::newRow("keys of other names")
        << QByteArray("1\\nome=x\n1\\bit_rate=1\nsize=1\n") << Rows{defaults};
    QTest::newRow("no id") << QByteArray("1\\name=n\n1\\hw=1\nsize=1\n")
                           << Rows{{none, u"n"_s, 4, none, 6000, 1}};
    QTest::newRow("numbers in no table") << QByteArray("1\\sourceKind=99\n1\\hw=-7\n1\\bitrate=-1\nsize=1\n")
                                         << Rows{{none, none, 99, none, -1, -7}};
    QTest::newRow("numbers that are none")
        << QByteArray("1\\sourceKind=ndi\n1\\hw=12x\n1\\bitrate=\nsize=1\n")
        << Rows{{none, none, 0, none, 0, 0}};
    QTest::newRow("a list for a number")
        << QByteArray("1\\bitrate=1, 2\nsize=1\n") << Rows{{none, none, 4, none, 0, 0}};
    QTest::newRow("other types")
        << QByteArray("1\\bitrate=@ByteArray(70)\n1\\sourceKind=true\n1\\hw=@Invalid()\nsize=1\n")
        << Rows{{none, none, 0, none, 70, 0}};
    QTest::newRow("the widest numbers") << QByteArray("1\\bitrate=2147483647\n1\\hw=-2147483648\nsize=1\n")
                                        << Rows{{none, none, 4, none, 2147483647, -2147483647 - 1}};
    QTest::newRow("beyond 64 bits") << QByteArray("1\\hw=99999999999999999999\nsize=1\n") << Rows{defaults};
    QTest::newRow("beyond 32 bits, of which the lower ones count")
        << QByteArray("1\\bitrate=4294967301\nsize=1\n") << Rows{{none, none, 4, none, 5, 0}};
    QTest::newRow("what isn't stored")
        << QByteArray("1\\id=a\n1\\codec=1\n1\\width=1\n1\\outputs\\1\\url=u\nsize=1\n")
        << Rows{{u"a"_s, none, 4, none, 6000, 0}};
    QTest::newRow("a count of outputs that is no number")
        << QByteArray("1\\id=a\n1\\outputs=tres\nsize=1\n") << Rows{{u"a"_s, none, 4, none, 6000, 0}};
    QTest::newRow("equal ids") << QByteArray("1\\id=a\n1\\name=x\n2\\id=a\n2\\name=y\nsize=2\n")
                               << Rows{{u"a"_s, u"x"_s, 4, none, 6000, 0},
                                       {u"a"_s, u"y"_s, 4, none, 6000, 0}};
    QTest::newRow("an id of another form") << QByteArray("1\\id=\"ID com espa\xc3\xa7o\"\nsize=1\n")
                                           << Rows{{u"ID com espaço"_s, none, 4, none, 6000, 0}};
    QTest::newRow("comments, blank lines and CR LF")
        << QByteArray("; c\r\n\r\n1\\id=a\r\nsize=1\r\n") << Rows{{u"a"_s, none, 4, none, 6000, 0}};
    QTest::newRow("a line without equals sign")
        << QByteArray("lixo\n1\\id=a\nsize=1\n") << Rows{{u"a"_s, none, 4, none, 6000, 0}};
    QTest::newRow("cut off inside a row")
        << QByteArray("size=2\n1\\id=a\n2\\na") << Rows{{u"a"_s, none, 4, none, 6000, 0}, defaults};
}

void tst_PipelineStoreFile::takesAnyRow()
{
    QFETCH(QByteArray, file);
    QFETCH(Rows, rows);

    StoreBench bench;
    bench.write("[pipelines]\n" + file);
    bench.start();

    Rows restored;
    const QList<PipelineConfig> configs = bench.configs();
    for (const PipelineConfig &config : configs) {
        restored << rowOf(config);
        QVERIFY(config.outputs.isEmpty());
        QCOMPARE(config.encoder.codec, 0);
        QCOMPARE(config.source.width, 1920);
    }
    QCOMPARE(restored, rows);
    for (const QString &state : bench.column(u"state"_s))
        QCOMPARE(state, u"stopped"_s);
}

void tst_PipelineStoreFile::reachesTheFirstOfEqualIds()
{
    StoreBench bench;
    bench.write("[pipelines]\n1\\id=a\n1\\name=x\n2\\id=a\n2\\name=y\nsize=2\n");
    bench.start();

    bench->renamePipeline(u"a"_s, u"z"_s);
    QCOMPARE(bench.column(u"name"_s), QStringList({u"z"_s, u"y"_s}));
    bench->removePipeline(u"a"_s);
    QCOMPARE(bench.column(u"name"_s), QStringList{u"y"_s});
    bench.start();
    QCOMPARE(bench.column(u"name"_s), QStringList{u"y"_s});
}

void tst_PipelineStoreFile::reachesAnEmptyId()
{
    StoreBench bench;
    bench.write("[pipelines]\n1\\name=x\nsize=1\n");
    bench.start();

    bench->renamePipeline(QString(), u"z"_s);
    QCOMPARE(bench.column(u"name"_s), QStringList{u"z"_s});
    QCOMPARE(bench.column(u"id"_s), QStringList{QString()});
    bench->removePipeline(u""_s);
    QCOMPARE(bench->pipelines(), QVariantList());
    QCOMPARE(bench.stored("size"), QByteArray("0"));
}

void tst_PipelineStoreFile::isLeftAsItStandsByALoad()
{
    const QByteArray file = "; comment\n[pipelines]\nsize=1\n1\\bitrate=x\n\n7\\id=late\n[other]\na=b\n";
    StoreBench bench;
    bench.write(file);
    const QDateTime time = QFileInfo(bench.filePath()).lastModified();
    bench.start();
    QCOMPARE(bench->pipelines().size(), 1);
    bench.end();
    QCOMPARE(bench.bytes(), file);
    QCOMPARE(QFileInfo(bench.filePath()).lastModified(), time);

    StoreBench fresh;
    fresh.start();
    fresh.end();
    QVERIFY(!fresh.fileExists());
}

void tst_PipelineStoreFile::isAnEmptyStoreIfUnreadable_data()
{
    QTest::addColumn<QByteArray>("file");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("another section") << QByteArray("[pipeline]\n1\\id=a\nsize=1\n");
    QTest::newRow("no section") << QByteArray("1\\id=a\nsize=1\n");
    QTest::newRow("a program") << QByteArray("\x7f"
                                             "ELF\x02\x01\x01\0\0\0[pipe\0lines]",
                                             21);
    QTest::newRow("every byte there is") << [] {
        QByteArray all;
        for (int byte = 0; byte < 256; ++byte)
            all += char(byte);
        return all.repeated(16);
    }();
    QTest::newRow("a megabyte without a line feed") << QByteArray(1 << 20, 'x');
    QTest::newRow("a megabyte of section starts") << QByteArray(1 << 20, '[');
    QTest::newRow("JSON") << QByteArray("{\"pipelines\": [{\"id\": \"a\"}]}");
}

void tst_PipelineStoreFile::isAnEmptyStoreIfUnreadable()
{
    QFETCH(QByteArray, file);

    StoreBench bench;
    bench.write(file);
    bench.start();
    QCOMPARE(bench->pipelines(), QVariantList());
    QCOMPARE(bench.logLines().size(), 1); // the probe's summary
    bench->addPipeline(u"a"_s);
    QCOMPARE(bench.column(u"name"_s), QStringList{u"a"_s});
}

void tst_PipelineStoreFile::maybeADirectory()
{
    StoreBench bench;
    QVERIFY(QDir().mkpath(bench.filePath()));
    bench.start();
    QCOMPARE(bench->pipelines(), QVariantList());
    const QString id = bench->addPipeline(u"a"_s);
    bench->renamePipeline(id, u"b"_s);
    QCOMPARE(bench.column(u"name"_s), QStringList{u"b"_s});
    QCOMPARE(bench.logLines().size(), 1);
    QVERIFY(QFileInfo(bench.filePath()).isDir());
    QVERIFY(QDir().rmdir(bench.filePath()));
}

CORVANE_TEST(tst_PipelineStoreFile, QCoreApplication)
#include "tst_PipelineStoreFile.moc"
