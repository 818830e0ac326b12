#include "tests/engine/StoreTestSupport.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// Directory of the user's settings while the object lives.
class SettingsPlace
{
public:
    explicit SettingsPlace(const QString &directory)
        : m_former(qEnvironmentVariable("XDG_CONFIG_HOME", QDir::homePath() + u"/.config"_s))
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, directory);
    }
    ~SettingsPlace() { QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_former); }
    Q_DISABLE_COPY_MOVE(SettingsPlace)

private:
    QString m_former;
};

/// One edit of every kind, and a run.
void useEverything(Engine &engine)
{
    const QString id = engine.addPipeline(u"nova"_s);
    engine.renamePipeline(id, u"b"_s);
    engine.configureSource(id, {{u"fps"_s, 25}});
    engine.configureEncoder(id, {{u"bitrate"_s, 3000}});
    engine.addRtmpOutput(id, u"fake:progress"_s);
    engine.addSrtOutput(id, u"srt://h:1"_s, 1, u""_s);
    engine.addSrtlaOutput(id, u"h"_s, 1);
    engine.setOutputEnabled(id, 1, false);
    engine.removeOutput(id, 2);
    engine.removeOutput(id, 1);
    engine.startPipeline(id);
    QVERIFY(waitUntil([&] { return engine.log().contains(u"[stats] "_s); }));
    engine.stopPipeline(id);
    QCOMPARE(engine.pipelines().last().toMap().value(u"name"_s).toString(), u"b"_s);
    QCOMPARE(engine.pipelines().last().toMap().value(u"state"_s).toString(), u"stopped"_s);
    QVERIFY(engine.anyPipelineTransmitting() == false);
}

} // namespace

/// A store that can't be written or read: the program goes on and logs nothing about it.
class tst_EngineStoreFailing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void goesOnWithoutAPlace_data();
    void goesOnWithoutAPlace();
    void goesOnOnAFullDisk();
    void goesOnOnAReadOnlyDisk();
};

void tst_EngineStoreFailing::goesOnWithoutAPlace_data()
{
    QTest::addColumn<QString>("place"); // below a directory that holds "file" and the link "loop"

    QTest::newRow("below a regular file") << u"file/config"_s;
    QTest::newRow("a regular file") << u"file"_s;
    QTest::newRow("a link to itself") << u"loop"_s;
    QTest::newRow("a device") << u"/dev/full"_s;
    QTest::newRow("where nothing can be made") << u"/proc/self/config"_s;
}

void tst_EngineStoreFailing::goesOnWithoutAPlace()
{
    QFETCH(QString, place);

    const QTemporaryDir directory;
    createFile(directory.filePath(u"file"_s));
    QVERIFY(QFile::link(u"loop"_s, directory.filePath(u"loop"_s)));
    const SettingsPlace settings(QDir(directory.path()).absoluteFilePath(place));
    StoreBench bench;
    bench.start();
    QCOMPARE(bench->pipelines(), QVariantList());
    QCOMPARE(bench.logLines().size(), 1);
    useEverything(bench.engine());
    QVERIFY(!bench.fileExists());

    bench.start();
    QVERIFY(!bench->log().contains(u"ERRO"_s));
}

void tst_EngineStoreFailing::goesOnOnAFullDisk()
{
    const QTemporaryDir directory;
    const SmallDisk disk(directory.path(), 64);
    if (!disk.isMounted())
        QSKIP("this process may not mount a file system");
    const SettingsPlace settings(directory.path());
    StoreBench bench;
    bench.start();
    bench->addPipeline(u"antes"_s);
    const QByteArray before = bench.bytes();
    QVERIFY(before.contains("antes"));

    QVERIFY(disk.fill());
    useEverything(bench.engine());
    QCOMPARE(bench.bytes(), before); // complete, if out of date
    QCOMPARE(bench.column(u"name"_s), QStringList({u"antes"_s, u"b"_s}));

    // Space is free again: the next edit writes everything.
    QVERIFY(QFile::remove(directory.filePath(u"filling"_s)));
    bench->addPipeline(u"depois"_s);
    bench.start();
    QCOMPARE(bench.column(u"name"_s), QStringList({u"antes"_s, u"b"_s, u"depois"_s}));
}

void tst_EngineStoreFailing::goesOnOnAReadOnlyDisk()
{
    const QTemporaryDir directory;
    const SmallDisk disk(directory.path(), 64);
    if (!disk.isMounted())
        QSKIP("this process may not mount a file system");
    const SettingsPlace settings(directory.path());
    StoreBench bench;
    bench.start();
    bench->addPipeline(u"antes"_s);
    const QByteArray before = bench.bytes();

    QVERIFY(disk.makeReadOnly());
    bench.start();
    QCOMPARE(bench.column(u"name"_s), QStringList{u"antes"_s});
    useEverything(bench.engine());
    QCOMPARE(bench.bytes(), before);
}

CORVANE_TEST(tst_EngineStoreFailing, QCoreApplication)
#include "tst_EngineStoreFailing.moc"
