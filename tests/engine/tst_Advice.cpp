#include "engine/Advice.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace corvane;

/// Bit rates by picture size and frame rate, and SRT parameters by scenario.
class tst_Advice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bitrateBySizeAndRate_data();
    void bitrateBySizeAndRate();
    void bitrateMapHasTheseKeysAndTypes();
    void platformLimits_data();
    void platformLimits();
    void srtScenario_data();
    void srtScenario();
    void srtMapHasTheseKeysAndTypes();
};

namespace {

/// "key type" of every entry of a map, in the order of the keys.
QStringList formOf(const QVariantMap &map)
{
    QStringList form;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
        form << entry.key() + u' ' + QString::fromLatin1(entry.value().metaType().name());
    return form;
}

} // namespace

void tst_Advice::bitrateBySizeAndRate_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("fps");
    QTest::addColumn<int>("recommended");
    QTest::addColumn<int>("min");
    QTest::addColumn<int>("max");
    QTest::addColumn<int>("bufsize");
    QTest::addColumn<int>("keyint");
    QTest::addColumn<int>("audioBitrate");

    const int most = std::numeric_limits<int>::max();
    QTest::newRow("720p30") << 1280 << 720 << 30 << 2500 << 1500 << 3750 << 5000 << 60 << 128;
    QTest::newRow("720p60") << 1280 << 720 << 60 << 3750 << 2250 << 5625 << 7500 << 120 << 192;
    QTest::newRow("1080p30") << 1920 << 1080 << 30 << 5000 << 3000 << 7500 << 10000 << 60 << 128;
    QTest::newRow("1080p60") << 1920 << 1080 << 60 << 7500 << 4500 << 11250 << 15000 << 120 << 192;
    QTest::newRow("4K30") << 3840 << 2160 << 30 << 20000 << 12000 << 30000 << 40000 << 60 << 256;
    QTest::newRow("4K60") << 3840 << 2160 << 60 << 30000 << 18000 << 45000 << 60000 << 120 << 256;

    QTest::newRow("one pixel above 720p counts as 1080p")
        << 921601 << 1 << 30 << 5000 << 3000 << 7500 << 10000 << 60 << 128;
    QTest::newRow("a tall picture of 720p's area")
        << 720 << 1280 << 30 << 2500 << 1500 << 3750 << 5000 << 60 << 128;
    QTest::newRow("one pixel above 1080p counts as 4K")
        << 2073601 << 1 << 30 << 20000 << 12000 << 30000 << 40000 << 60 << 256;
    QTest::newRow("1440p counts as 4K")
        << 2560 << 1440 << 30 << 20000 << 12000 << 30000 << 40000 << 60 << 256;
    QTest::newRow("30 frames is the last low rate")
        << 1920 << 1080 << 30 << 5000 << 3000 << 7500 << 10000 << 60 << 128;
    QTest::newRow("31 frames is the first high rate")
        << 1920 << 1080 << 31 << 7500 << 4500 << 11250 << 15000 << 62 << 192;
    QTest::newRow("key frames follow the rate alone")
        << 1280 << 720 << 24 << 2500 << 1500 << 3750 << 5000 << 48 << 128;
    QTest::newRow("nothing at all") << 0 << 0 << 0 << 2500 << 1500 << 3750 << 5000 << 0 << 128;
    QTest::newRow("negative numbers") << -1920 << 1080 << -5 << 2500 << 1500 << 3750 << 5000 << -10 << 128;
    QTest::newRow("an area that wraps to nothing")
        << 65536 << 65536 << 30 << 2500 << 1500 << 3750 << 5000 << 60 << 128;
    QTest::newRow("a rate that wraps") << 1280 << 720 << most << 3750 << 2250 << 5625 << 7500 << -2 << 192;
}

void tst_Advice::bitrateBySizeAndRate()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, fps);

    const QVariantMap advice = bitrateAdvice(width, height, fps);
    QTEST(advice.value(u"recommended"_s).toInt(), "recommended");
    QTEST(advice.value(u"min"_s).toInt(), "min");
    QTEST(advice.value(u"max"_s).toInt(), "max");
    QTEST(advice.value(u"bufsize"_s).toInt(), "bufsize");
    QTEST(advice.value(u"keyint"_s).toInt(), "keyint");
    QTEST(advice.value(u"audioBitrate"_s).toInt(), "audioBitrate");
}

void tst_Advice::bitrateMapHasTheseKeysAndTypes()
{
    const QVariantMap advice = bitrateAdvice(1920, 1080, 30);
    QCOMPARE(formOf(advice), QStringList({
                                 u"audioBitrate int"_s,
                                 u"bufsize int"_s,
                                 u"keyint int"_s,
                                 u"max int"_s,
                                 u"min int"_s,
                                 u"platforms QVariantMap"_s,
                                 u"recommended int"_s,
                             }));
    const QVariantMap platforms = advice.value(u"platforms"_s).toMap();
    QCOMPARE(platforms.keys(), QStringList({u"facebook"_s, u"twitch"_s, u"youtube"_s}));
    for (const QVariant &platform : platforms)
        QCOMPARE(formOf(platform.toMap()), QStringList({u"maxBitrate int"_s, u"maxRes QString"_s}));
}

void tst_Advice::platformLimits_data()
{
    QTest::addColumn<QString>("platform");
    QTest::addColumn<int>("maxBitrate");
    QTest::addColumn<QString>("maxRes");

    QTest::newRow("twitch") << u"twitch"_s << 6000 << u"1080p60"_s;
    QTest::newRow("youtube") << u"youtube"_s << 51000 << u"4K60"_s;
    QTest::newRow("facebook") << u"facebook"_s << 4000 << u"1080p30"_s;
}

void tst_Advice::platformLimits()
{
    QFETCH(QString, platform);

    // The limits stand beside the advice and never clamp it.
    for (const QVariantMap &advice : {bitrateAdvice(0, 0, 0), bitrateAdvice(3840, 2160, 60)}) {
        const QVariantMap limit = advice.value(u"platforms"_s).toMap().value(platform).toMap();
        QTEST(limit.value(u"maxBitrate"_s).toInt(), "maxBitrate");
        QTEST(limit.value(u"maxRes"_s).toString(), "maxRes");
    }
}

void tst_Advice::srtScenario_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<int>("latency");
    QTest::addColumn<int>("oheadbw");
    QTest::addColumn<QString>("description");

    const auto row = [](const char *name, const QString &scenario, int latency, int oheadbw,
                        const QString &description) {
        QTest::newRow(name) << scenario << latency << oheadbw << description;
    };
    const QString generic = u"Padrao generico"_s;
    row("studio", u"studio"_s, 120, 25, u"Estudio/LAN fibra: latencia minima, banda sobrando"_s);
    row("internet", u"internet"_s, 500, 25, u"Internet fibra: latencia moderada pra absorver jitter"_s);
    row("irl", u"irl"_s, 1500, 50, u"IRL 4G/5G campo: latencia alta, overhead 50% pra links lossy"_s);
    row("bonding", u"bonding"_s, 2000, 50, u"Bonding srtla: latencia 2s p/ agregacao de multiplos links"_s);
    row("relay", u"relay"_s, 250, 25, u"Relay servidor: recebe e repassa, latencia baixa entre servidores"_s);

    row("the window's key for a studio is not known", u"lan"_s, 500, 25, generic);
    row("the window's key for the internet is not known", u"fiber"_s, 500, 25, generic);
    row("the window's key for bonding is not known", u"srtla"_s, 500, 25, generic);
    row("case matters", u"Studio"_s, 500, 25, generic);
    row("all capitals", u"IRL"_s, 500, 25, generic);
    row("surrounding spaces matter", u" relay "_s, 500, 25, generic);
    row("no text", u""_s, 500, 25, generic);
    row("null text", QString(), 500, 25, generic);
}

void tst_Advice::srtScenario()
{
    QFETCH(QString, scenario);

    const QVariantMap advice = srtParamAdvice(scenario);
    QTEST(advice.value(u"latency"_s).toInt(), "latency");
    QTEST(advice.value(u"oheadbw"_s).toInt(), "oheadbw");
    QTEST(advice.value(u"description"_s).toString(), "description");

    QCOMPARE(advice.value(u"maxbw"_s).toInt(), -1);
    QCOMPARE(advice.value(u"pbkeylen"_s).toInt(), 0);
    QCOMPARE(advice.value(u"passphrase"_s).toString(), QString());
    QCOMPARE(advice.value(u"streamid"_s).toString(), QString());
    QCOMPARE(advice.value(u"rcvbuf"_s).toInt(), 12058624);
    QCOMPARE(advice.value(u"sndbuf"_s).toInt(), 12058624);
}

void tst_Advice::srtMapHasTheseKeysAndTypes()
{
    const QStringList form{
        u"description QString"_s, u"latency int"_s,        u"maxbw int"_s,
        u"oheadbw int"_s,         u"passphrase QString"_s, u"pbkeylen int"_s,
        u"rcvbuf int"_s,          u"sndbuf int"_s,         u"streamid QString"_s,
    };
    QCOMPARE(formOf(srtParamAdvice(u"irl"_s)), form);
    QCOMPARE(formOf(srtParamAdvice(u"no such scenario"_s)), form);
}

CORVANE_TEST(tst_Advice, corvane::test::NoApplication)
#include "tst_Advice.moc"
