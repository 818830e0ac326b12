#include "tests/air/AirInstallation.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

const QString wordsOfHelp = uR"(corvane-air on|off|status [pasta do corvane]

  on      põe o programa auxiliar ao lado do corvane: a linha volta sozinha depois de uma queda,
          várias saídas numa stream, gravação ao lado da transmissão
  off     tira o programa auxiliar
  status  diz o que está lá e qual ffmpeg é chamado; código 0: ligado, 3: desligado

Sem a pasta vale a mais próxima acima desta ferramenta que tem um corvane.
)"_s;
const QString openAgain =
    u"Feche o CORVANE e abra-o de novo: as ferramentas são procuradas só no início.\n"_s;

} // namespace

/// corvane-air in an installation.
class tst_AirSwitch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void onAndOff();
    void onTwice();
    void refused_data();
    void refused();
    void questionsToTheEncoder();
    void anotherEncoderStays();
    void whatCountsAsACompanion_data();
    void whatCountsAsACompanion();
    void withoutTheCompanion();
    void programFolder_data();
    void programFolder();
    void restOfAnEarlierCall();
    void whileItRuns();
    void recordings();
    void misuse();
};

void tst_AirSwitch::onAndOff()
{
    AirInstallation here(allWords);
    const QString place = here.native(u"ffmpeg"_s);
    const QString rest = "ffmpeg: "_L1 + here.native(here.realFfmpeg) + u"\ngravações: nenhuma ("_s +
                         here.native(u"recordings"_s) + u" não indica nenhuma pasta)\n"_s;
    QCOMPARE(here.call({u"status"_s}), 3);
    QCOMPARE(here.output, "desligado\n"_L1 + rest);

    QCOMPARE(here.call({u"on"_s}), 0);
    QCOMPARE(here.output, "ligado: "_L1 + place + "\nffmpeg: "_L1 + here.native(here.realFfmpeg) +
                              u"\nUma atualização do CORVANE o retira: ligue-o de novo depois dela.\n"_s +
                              openAgain);
    QCOMPARE(here.error, QString());
    QCOMPARE(contentsOf(here.path(u"ffmpeg"_s)),
             contentsOf(here.path(u"air/"_s + executableName(u"ffmpeg"_s))));
    QProcess companion;
    here.start(companion, u"ffmpeg"_s, {u"fake:exit=3"_s}); // as the program starts it
    QVERIFY(companion.waitForFinished());
    QCOMPARE(companion.exitCode(), 3);
    QCOMPARE(here.call({u"status"_s}), 0);
    QCOMPARE(here.output, "ligado: "_L1 + place + u'\n' + rest);

    QCOMPARE(here.call({u"off"_s}), 0);
    QCOMPARE(here.output, "desligado: "_L1 + place + " foi removido\n"_L1 + openAgain);
    QVERIFY(!QFile::exists(here.path(u"ffmpeg"_s)));
    QCOMPARE(here.call({u"off"_s}), 0);
    QCOMPARE(here.output, u"desligado: não há nada em "_s + place + u'\n');
    QCOMPARE(here.call({u"status"_s}), 3);
}

void tst_AirSwitch::onTwice()
{
    AirInstallation here(allWords);

    QCOMPARE(here.call({u"on"_s}), 0);
    QCOMPARE(here.call({u"on"_s}), 0);

    QCOMPARE(entriesOf(here.path(QString())),
             QStringList({u"air"_s, u"bin"_s, executableName(u"corvane"_s), u"ffmpeg"_s}));
}

void tst_AirSwitch::refused_data()
{
    QTest::addColumn<QByteArray>("encoder");
    QTest::addColumn<QString>("why"); ///< behind the path of the encoder, if there is one

    QTest::newRow("no ffmpeg") << QByteArray() << u"não há ffmpeg no PATH"_s;
    const auto without = [](const QByteArray &word, const QString &muxer) {
        QTest::addRow("one without %s", word.constData())
            << QByteArray(allWords).replace(word, "") // the blanks around it stay
            << u" é antigo demais: falta %1 (muxer %2)"_s.arg(QString::fromUtf8(word), muxer);
    };
    without("attempt_recovery", u"fifo"_s);
    without("recover_any_error", u"fifo"_s);
    without("use_fifo", u"tee"_s);
    without("hash", u"hash"_s);
    without("cluster_time_limit", u"matroska"_s);
}

void tst_AirSwitch::refused()
{
    QFETCH(const QByteArray, encoder);
    QFETCH(const QString, why);
    AirInstallation here(encoder);

    QCOMPARE(here.call({u"on"_s}), 1);

    const QString which = encoder.isEmpty() ? QString() : here.native(here.realFfmpeg);
    QCOMPARE(here.error, u"não foi ligado: "_s + which + why + u'\n');
    QVERIFY(!QFile::exists(here.path(u"ffmpeg"_s)));
    QCOMPARE(here.call({u"status"_s}), 3);
    QCOMPARE(here.output.contains(u"\nffmpeg: não há nenhum no PATH\n"_s), encoder.isEmpty());
}

void tst_AirSwitch::questionsToTheEncoder()
{
    AirInstallation here(allWords);
    here.asked = here.path(u"asked"_s);

    QCOMPARE(here.call({u"on"_s}), 0);

    const QString question = u"-hide_banner -h muxer="_s;
    QCOMPARE(fileLines(here.asked),
             QStringList({question + u"fifo"_s, question + u"fifo"_s, question + u"tee"_s,
                          question + u"hash"_s, question + u"matroska"_s}));
}

void tst_AirSwitch::anotherEncoderStays()
{
    AirInstallation here(allWords);
    writeFile(here.path(u"ffmpeg"_s), "another");

    const QString place = here.native(u"ffmpeg"_s);

    QCOMPARE(here.call({u"on"_s}), 1);
    QCOMPARE(here.error, u"não foi ligado: já existe um outro ffmpeg em "_s + place + u'\n');
    QCOMPARE(here.call({u"off"_s}), 1);
    QCOMPARE(here.error, u"não foi desligado: "_s + place + u" é um outro ffmpeg\n"_s);
    QCOMPARE(here.call({u"status"_s}), 3);
    QVERIFY2(here.output.startsWith("desligado\nem "_L1 + place + u" há um outro ffmpeg\nffmpeg: "_s),
             qPrintable(here.output));

    QCOMPARE(contentsOf(here.path(u"ffmpeg"_s)), "another"_ba);
}

void tst_AirSwitch::whatCountsAsACompanion_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("companion");

    const QByteArray mark = "CORVANE_AIR_PASSED"; // by which companions of all versions know each other
    QTest::newRow("another version") << "old " + mark + '\0' << qint64(100) << true;
    QTest::newRow("without the mark") << mark.chopped(1) << qint64(100) << false;
    QTest::newRow("as large as one may be") << mark << qint64(40'000'000) << true;
    QTest::newRow("larger") << mark << qint64(40'000'001) << false;
}

void tst_AirSwitch::whatCountsAsACompanion()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const qint64, size);
    QFETCH(const bool, companion);
    AirInstallation here(allWords);
    writeFile(here.path(u"ffmpeg"_s), bytes);
    QVERIFY(QFile::resize(here.path(u"ffmpeg"_s), size));

    QCOMPARE(here.call({u"status"_s}), companion ? 0 : 3);
}

void tst_AirSwitch::withoutTheCompanion()
{
    AirInstallation here(allWords);
    const QString companion = u"air/"_s + executableName(u"ffmpeg"_s);
    QVERIFY(QFile::remove(here.path(companion)));

    QCOMPARE(here.call({u"on"_s}), 1);

    QCOMPARE(here.error,
             u"não foi ligado: o programa auxiliar não está em "_s + here.native(companion) + u'\n');
}

void tst_AirSwitch::programFolder_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("place"); ///< of the companion; empty: no program is found

    QTest::newRow("of a build, two levels above") << u"corvane"_s << u"ffmpeg"_s;
    QTest::newRow("of a package, beside the companions") << u"corvane/corvane"_s << u"corvane/ffmpeg"_s;
    QTest::newRow("the nearest") << u"companions/corvane"_s << u"companions/ffmpeg"_s;
    QTest::newRow("none") << QString() << QString();
}

void tst_AirSwitch::programFolder()
{
    QFETCH(const QString, program);
    QFETCH(const QString, place);
    AirInstallation here(allWords, u"companions/air/"_s, program);
    if (program == "companions/corvane"_L1)
        writeFile(here.path(executableName(u"corvane"_s)), "further up");

    QCOMPARE(here.call({u"on"_s}), place.isEmpty() ? 1 : 0);

    if (place.isEmpty())
        QCOMPARE(here.error, u"não há corvane acima desta ferramenta: diga a pasta dele\n"_s);
    else
        QVERIFY2(here.output.startsWith("ligado: "_L1 + here.native(place) + u'\n'), qPrintable(here.output));
}

void tst_AirSwitch::restOfAnEarlierCall()
{
    AirInstallation here(allWords);
    writeFile(here.path(u"ffmpeg.novo"_s), "half");

    QCOMPARE(here.call({u"on"_s}), 0);

    QVERIFY(!QFile::exists(here.path(u"ffmpeg.novo"_s)));
    QCOMPARE(here.call({u"status"_s}), 0);
}

void tst_AirSwitch::whileItRuns()
{
    AirInstallation here(allWords);
    QCOMPARE(here.call({u"on"_s}), 0);
    QProcess companion;
    here.start(companion, u"ffmpeg"_s, {u"fake:stderr=up"_s});
    QVERIFY(waitUntil([&] { return companion.readAllStandardError() == "up"; }));

#ifdef Q_OS_WIN // which keeps the file of a program that runs
    QCOMPARE(here.call({u"on"_s}), 1);
    QVERIFY2(here.error.endsWith(" (feche o CORVANE antes)\n"_L1), qPrintable(here.error));
    QCOMPARE(here.call({u"off"_s}), 1);
    QVERIFY2(here.error.endsWith(" (feche o CORVANE antes)\n"_L1), qPrintable(here.error));
    QCOMPARE(here.call({u"status"_s}), 0);
    QCOMPARE(entriesOf(here.path(QString())),
             QStringList({u"air"_s, u"bin"_s, executableName(u"corvane"_s), u"ffmpeg"_s}));
#else
    QCOMPARE(here.call({u"on"_s}), 0);
    QCOMPARE(here.call({u"off"_s}), 0);
#endif
    companion.write("q");
    QVERIFY(companion.waitForFinished());
}

void tst_AirSwitch::recordings()
{
    AirInstallation here(allWords);
    writeFile(here.path(u"recordings"_s), "/films\n");

    here.call({u"status"_s});

    QVERIFY(here.output.endsWith(u"\ngravações: /films\n"_s));
}

void tst_AirSwitch::misuse()
{
    AirInstallation here(allWords);

    QCOMPARE(here.call({}), 2);
    QCOMPARE(here.call({u"maybe"_s}), 2);
    QCOMPARE(here.call({u"on"_s, u"a"_s, u"b"_s}), 2);
    QCOMPARE(here.call({u"on"_s, here.path(u"air"_s)}), 1);
    QCOMPARE(here.error, u"não foi ligado: não há corvane em "_s + here.native(u"air"_s) + u'\n');
    for (const QString &word : {u"help"_s, u"--help"_s, u"-h"_s}) {
        QCOMPARE(here.call({word}), 0);
        QCOMPARE(here.output, wordsOfHelp);
        QCOMPARE(here.error, QString());
    }
}

CORVANE_TEST(tst_AirSwitch, QCoreApplication)
#include "tst_AirSwitch.moc"
