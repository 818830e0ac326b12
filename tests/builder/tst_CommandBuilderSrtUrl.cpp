#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

class tst_CommandBuilderSrtUrl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parameters_data();
    void parameters();
    void otherFieldsChangeNothing();
    void streamId_data();
    void streamId();
    void streamIdOfEveryAsciiCharacter();
};

void tst_CommandBuilderSrtUrl::parameters_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("latency");
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("id");
    QTest::addColumn<int>("groupMode");
    QTest::addColumn<QString>("result");

    const auto row = [](const char *name, const QString &url, int latency, const QString &passphrase,
                        const QString &id, int groupMode, const QString &result) {
        QTest::newRow(name) << url << latency << passphrase << id << groupMode << result;
    };
    const QString host = u"srt://host:9000"_s;
    row("latency alone", host, 120, {}, {}, 0, u"srt://host:9000?latency=120"_s);
    row("passphrase", host, 120, u"pw"_s, {}, 0, u"srt://host:9000?latency=120&passphrase=pw&pbkeylen=16"_s);
    row("stream id", host, 120, {}, u"live/cam 1"_s, 0,
        u"srt://host:9000?latency=120&streamid=live%2Fcam%201"_s);
    row("group", host, 120, {}, {}, 1, u"srt://host:9000?latency=120&mode=caller&groupconnect=1"_s);
    row("passphrase and group", host, 120, u"pw"_s, {}, 1,
        u"srt://host:9000?latency=120&passphrase=pw&pbkeylen=16&mode=caller&groupconnect=1"_s);
    row("stream id and group", host, 120, {}, u"a"_s, 1,
        u"srt://host:9000?latency=120&streamid=a&mode=caller&groupconnect=1"_s);
    row("passphrase and stream id", host, 120, u"pw"_s, u"a"_s, 0,
        u"srt://host:9000?latency=120&passphrase=pw&pbkeylen=16&streamid=a"_s);
    row("everything, in order", host, 2000, u"pw"_s, u"a"_s, 1,
        u"srt://host:9000?latency=2000&passphrase=pw&pbkeylen=16&streamid=a&mode=caller&groupconnect=1"_s);
    row("a group mode other than 1", host, 120, {}, {}, 2, u"srt://host:9000?latency=120"_s);
    row("a negative group mode", host, 120, {}, {}, -1, u"srt://host:9000?latency=120"_s);

    row("latency 0", host, 0, {}, {}, 0, u"srt://host:9000?latency=0"_s);
    row("negative latency", host, -20, {}, {}, 0, u"srt://host:9000?latency=-20"_s);
    row("latency without digit grouping", host, 8000, {}, {}, 0, u"srt://host:9000?latency=8000"_s);

    row("a query is continued", u"srt://host:9000?mode=listener"_s, 120, {}, {}, 0,
        u"srt://host:9000?mode=listener&latency=120"_s);
    row("an empty query is continued", u"srt://host:9000?"_s, 120, {}, {}, 0,
        u"srt://host:9000?&latency=120"_s);
    row("a parameter of the operator's is neither merged nor tested",
        u"srt://host:9000?latency=5&passphrase=x&mode=rendezvous"_s, 120, u"pw"_s, {}, 1,
        u"srt://host:9000?latency=5&passphrase=x&mode=rendezvous&latency=120&passphrase=pw&pbkeylen=16&mode=caller&groupconnect=1"_s);
    row("an empty URL", {}, 120, {}, {}, 0, u"?latency=120"_s);
    row("placeholders in the URL", u"srt://host:9000/%1%2"_s, 120, u"%1"_s, u"%2"_s, 0,
        u"srt://host:9000/%1%2?latency=120&passphrase=%1&pbkeylen=16&streamid=%252"_s);
    row("a fragment is not looked at", u"srt://host:9000#x"_s, 120, {}, {}, 0,
        u"srt://host:9000#x?latency=120"_s);

    row("raw passphrase: ampersand and hash", host, 120, u"a&b#c"_s, {}, 0,
        u"srt://host:9000?latency=120&passphrase=a&b#c&pbkeylen=16"_s);
    row("raw passphrase: blank, percent sign, accents", host, 120, u"é %20?=/+"_s, {}, 0,
        u"srt://host:9000?latency=120&passphrase=é %20?=/+&pbkeylen=16"_s);
    row("a question mark in the passphrase opens no query", host, 120, u"?"_s, {}, 0,
        u"srt://host:9000?latency=120&passphrase=?&pbkeylen=16"_s);
    const QString longText(100, u'x');
    row("a passphrase of any length", host, 120, longText, {}, 0,
        u"srt://host:9000?latency=120&passphrase="_s + longText + u"&pbkeylen=16"_s);
}

void tst_CommandBuilderSrtUrl::parameters()
{
    QFETCH(const QString, url);
    QFETCH(const int, latency);
    QFETCH(const QString, passphrase);
    QFETCH(const QString, id);
    QFETCH(const int, groupMode);

    OutputConfig output;
    output.kind = OutputKind::Srt;
    output.url = url;
    output.srtLatencyMs = latency;
    output.passphrase = passphrase;
    output.streamId = id;
    output.groupMode = groupMode;
    QTEST(CommandBuilder::srtUrl(output), "result");
}

void tst_CommandBuilderSrtUrl::otherFieldsChangeNothing()
{
    OutputConfig output;
    output.url = u"srt://host:9000"_s;
    output.enabled = false;
    output.oheadbw = 50;
    output.maxbw = 0;
    output.extraSrtList = QStringList{u"srt://other:1"_s};
    output.extraSrtlaList = QStringList{u"other:2"_s};
    output.receiverHost = u"bond.example"_s;
    output.receiverPort = 1;
    output.localPort = 8900;
    output.localPort2 = 8901;
    for (const int kind : {0, 1, 2, 3, 4, 5, -1}) {
        output.kind = kind;
        QCOMPARE(CommandBuilder::srtUrl(output), u"srt://host:9000?latency=120"_s);
    }
}

void tst_CommandBuilderSrtUrl::streamId_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("encoded");

    QTest::newRow("characters that stand") << u"azAZ09-._~"_s << u"azAZ09-._~"_s;
    QTest::newRow("slash and blank") << u"live/cam 1"_s << u"live%2Fcam%201"_s;
    QTest::newRow("reserved characters, first half") << u":/?#[]@"_s << u"%3A%2F%3F%23%5B%5D%40"_s;
    QTest::newRow("reserved characters, second half")
        << u"!$&'()*+,;="_s << u"%21%24%26%27%28%29%2A%2B%2C%3B%3D"_s;
    QTest::newRow("access control syntax")
        << u"#!::r=live/a,m=publish"_s << u"%23%21%3A%3Ar%3Dlive%2Fa%2Cm%3Dpublish"_s;
    QTest::newRow("already encoded: encoded twice") << u"live%2Fcam%201"_s << u"live%252Fcam%25201"_s;
    QTest::newRow("placeholders") << u"%1%2"_s << u"%251%252"_s;
    QTest::newRow("two bytes of UTF-8") << u"câmera"_s << u"c%C3%A2mera"_s;
    QTest::newRow("three bytes of UTF-8") << u"日"_s << u"%E6%97%A5"_s;
    QTest::newRow("four bytes of UTF-8") << u"😀"_s << u"%F0%9F%98%80"_s;
    QTest::newRow("line feed and tabulator") << u"a\nb\tc"_s << u"a%0Ab%09c"_s;
    QTest::newRow("a blank alone is an id") << u" "_s << u"%20"_s;
}

void tst_CommandBuilderSrtUrl::streamId()
{
    QFETCH(const QString, id);
    QFETCH(const QString, encoded);

    OutputConfig output;
    output.url = u"srt://host:9000"_s;
    output.streamId = id;
    QCOMPARE(CommandBuilder::srtUrl(output), u"srt://host:9000?latency=120&streamid="_s + encoded);
}

void tst_CommandBuilderSrtUrl::streamIdOfEveryAsciiCharacter()
{
    static const QString standing = u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~"_s;
    static const QString digits = u"0123456789ABCDEF"_s;

    for (int code = 0; code < 128; ++code) {
        const QChar character(code);
        OutputConfig output;
        output.url = u"srt://host:9000"_s;
        output.streamId = character;
        const QString encoded = standing.contains(character)
                                    ? QString(character)
                                    : QString(u'%') + digits.at(code / 16) + digits.at(code % 16);
        QCOMPARE(CommandBuilder::srtUrl(output), u"srt://host:9000?latency=120&streamid="_s + encoded);
    }
}

CORVANE_TEST(tst_CommandBuilderSrtUrl, QCoreApplication)
#include "tst_CommandBuilderSrtUrl.moc"
