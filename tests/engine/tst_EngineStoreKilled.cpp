#include "tests/support/Runner.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QTemporaryDir>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr int edits = 1000;

/// The rows of the settings file in the form in which store_editor prints them.
QJsonArray storedRows(const QString &path)
{
    QSettings settings(path, QSettings::IniFormat);
    QJsonArray rows;
    const int size = settings.beginReadArray(u"pipelines"_s);
    for (int row = 0; row < size; ++row) {
        settings.setArrayIndex(row);
        rows.append(QJsonArray{settings.value(u"id"_s).toString(), settings.value(u"name"_s).toString(),
                               settings.value(u"sourceKind"_s).toInt(),
                               settings.value(u"sourceUri"_s).toString(),
                               settings.value(u"bitrate"_s).toInt(), settings.value(u"hw"_s).toInt(),
                               settings.value(u"outputs"_s).toInt()});
    }
    return rows;
}

/// Replaces an id that couldn't be predicted by the one that the store gave to the added pipeline.
QJsonArray withIdsOf(QJsonArray told, const QJsonArray &stored)
{
    for (qsizetype row = 0; row < told.size() && row < stored.size(); ++row) {
        QJsonArray cells = told.at(row).toArray();
        if (cells.at(0) == "*"_L1) {
            cells[0] = stored.at(row).toArray().at(0);
            told[row] = cells;
        }
    }
    return told;
}

QByteArray text(const QJsonArray &rows)
{
    return QJsonDocument(rows).toJson(QJsonDocument::Compact);
}

} // namespace

/// The program is killed at random moments of 1,000 random edits: every edit that had returned is in the
/// file.
class tst_EngineStoreKilled : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsWhatHadReturned_data();
    void holdsWhatHadReturned();
};

void tst_EngineStoreKilled::holdsWhatHadReturned_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<int>("killAfter"); // edits that have returned at least

    QRandomGenerator random(20240611);
    for (quint32 seed = 1; seed <= 20; ++seed)
        QTest::addRow("seed %u", seed) << seed << random.bounded(edits);
    QTest::newRow("seed 21, after the last edit") << 21U << edits;
}

void tst_EngineStoreKilled::holdsWhatHadReturned()
{
    QFETCH(quint32, seed);
    QFETCH(int, killAfter);

    const QTemporaryDir home;
    QProcess editor;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, home.path());
    environment.insert(u"XDG_CONFIG_HOME"_s, home.path());
    environment.insert(u"PATH"_s, home.path()); // no tools to ask
    editor.setProcessEnvironment(environment);
    editor.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    editor.start(QStringLiteral(CORVANE_STORE_EDITOR), {QString::number(seed), QString::number(edits)});

    QRandomGenerator random(seed);
    const qint64 delay = random.bounded(8'000'000); // ns: more than one edit takes
    QByteArray told;
    while (told.count("\ndone\n") < killAfter) {
        QVERIFY2(editor.waitForReadyRead(60'000), told.right(500).constData());
        told += editor.readAllStandardOutput();
    }
    // Spins on to a moment that is independent of the child's last line.
    QElapsedTimer moment;
    for (moment.start(); moment.nsecsElapsed() < delay;) {
    }
    editor.kill();
    QVERIFY(editor.waitForFinished());
    QCOMPARE(editor.exitStatus(), QProcess::CrashExit);
    told += editor.readAllStandardOutput();

    QJsonArray returned; // as the store was after the last edit that had returned
    QJsonArray begun;
    bool inEdit = false;
    int count = 0;
    for (const QByteArray &line : told.split('\n')) {
        if (line.startsWith("ready "))
            returned = QJsonDocument::fromJson(line.sliced(6)).array();
        if (line.startsWith("next ")) {
            begun = QJsonDocument::fromJson(line.sliced(5)).array();
            inEdit = true;
        }
        if (line == "done") {
            returned = begun;
            inEdit = false;
            ++count;
        }
    }
    QVERIFY(count >= killAfter);

    const QString path = home.filePath(u"corvane-test/store.conf"_s);
    const QJsonArray stored = storedRows(path);
    const bool asReturned = withIdsOf(returned, stored) == stored;
    const bool asBegun = inEdit && withIdsOf(begun, stored) == stored;
    const QByteArray difference = "edits: " + QByteArray::number(count) + "\nstored:   " + text(stored) +
                                  "\nreturned: " + text(returned) + "\nbegun:    " + text(begun);
    QVERIFY2(asReturned || asBegun, difference.constData());

    // The next run goes on with it, whatever files the killed one has left beside it.
    QProcess next;
    next.setProcessEnvironment(environment);
    next.start(QStringLiteral(CORVANE_STORE_EDITOR), {u"1"_s, u"1"_s});
    QByteArray nextTold;
    while (!nextTold.contains("\nend\n")) {
        QVERIFY2(next.waitForReadyRead(60'000), nextTold.constData());
        nextTold += next.readAllStandardOutput();
    }
    next.kill();
    QVERIFY(next.waitForFinished());
    const QJsonArray restored = QJsonDocument::fromJson(nextTold.split('\n').value(0).sliced(6)).array();
    QStringList ids;
    for (const auto &row : restored)
        ids << row.toArray().at(0).toString();
    QStringList storedIds;
    for (const auto &row : stored)
        storedIds << row.toArray().at(0).toString();
    QCOMPARE(ids, storedIds);
}

CORVANE_TEST(tst_EngineStoreKilled, QCoreApplication)
#include "tst_EngineStoreKilled.moc"
