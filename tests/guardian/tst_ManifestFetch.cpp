#include "tests/support/HttpServer.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tools/guardian/ManifestFetch.h"

#include <QTest>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;
using namespace corvane::test;

using Identity = HttpServer::Identity;

/// The feed as the guardian asks it, over real HTTPS.
class tst_ManifestFetch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answers_data();
    void answers();
    void anAnswerThatDoesntEnd();
    void onlyHttpsIsAsked_data();
    void onlyHttpsIsAsked();

private:
    struct Answer
    {
        int count = 0;
        QByteArray text;
        QString error;
    };
    [[nodiscard]] static Answer ask(const QString &feed,
                                    std::chrono::milliseconds patience = std::chrono::seconds(30));
};

void tst_ManifestFetch::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    trustTestAuthority();
}

tst_ManifestFetch::Answer tst_ManifestFetch::ask(const QString &feed, std::chrono::milliseconds patience)
{
    QObject parent;
    Answer answer;
    httpsSource(feed, &parent, patience)([&answer](const QByteArray &text, const QString &error) {
        ++answer.count;
        answer.text = text;
        answer.error = error;
    });
    (void)waitUntil([&] { return answer.count > 0; });
    return answer;
}

void tst_ManifestFetch::answers_data()
{
    QTest::addColumn<Identity>("identity");
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<bool>("good");
    const auto body = [](const QByteArray &text) {
        HttpAnswer answer;
        answer.body = text;
        return answer;
    };
    HttpAnswer missing;
    missing.status = 404;
    HttpAnswer cut = body("{}");
    cut.announced = 1000;
    cut.end = HttpAnswer::End::Cut;
    HttpAnswer plain;
    plain.status = 302;
    plain.location = u"http://127.0.0.1:1/latest.json"_s;
    QTest::newRow("as it should be") << Identity::Trusted << body("{}") << true;
    QTest::newRow("an expired certificate") << Identity::Expired << body("{}") << false;
    QTest::newRow("another host's certificate") << Identity::Elsewhere << body("{}") << false;
    QTest::newRow("a stranger's certificate") << Identity::Stranger << body("{}") << false;
    QTest::newRow("not there") << Identity::Trusted << missing << false;
    QTest::newRow("cut off") << Identity::Trusted << cut << false;
    QTest::newRow("redirected to plain HTTP") << Identity::Trusted << plain << false;
    QTest::newRow("as long as one may be") << Identity::Trusted << body(QByteArray(1 << 20, ' ')) << true;
    QTest::newRow("a byte longer") << Identity::Trusted << body(QByteArray((1 << 20) + 1, ' ')) << false;
    QTest::newRow("endless") << Identity::Trusted << body(QByteArray(8 << 20, ' ')) << false;
}

void tst_ManifestFetch::answers()
{
    QFETCH(const Identity, identity);
    QFETCH(const HttpAnswer, answer);
    QFETCH(const bool, good);
    HttpServer server(identity);
    server.put(u"/latest.json"_s, answer);
    const Answer got = ask(server.url(u"/latest.json"_s));
    QCOMPARE(got.count, 1);
    if (good) {
        QCOMPARE(got.error, QString());
        QCOMPARE(got.text, answer.body);
    } else {
        // How much of it has come in when it is stopped is the network's business.
        QVERIFY2(got.error.startsWith("the feed doesn't answer: "_L1) ||
                     got.error == "the feed's manifest is longer than 1048576 bytes"_L1,
                 qPrintable(got.error));
        QCOMPARE(got.text, QByteArray());
    }
}

void tst_ManifestFetch::anAnswerThatDoesntEnd()
{
    HttpServer server(Identity::Trusted);
    HttpAnswer held;
    held.body = QByteArray(1000, ' ');
    held.end = HttpAnswer::End::Held;
    server.put(u"/latest.json"_s, held);
    const Answer got = ask(server.url(u"/latest.json"_s), std::chrono::milliseconds(500));
    QCOMPARE(got.count, 1);
    QVERIFY2(got.error.startsWith("the feed doesn't answer: "_L1), qPrintable(got.error));
}

void tst_ManifestFetch::onlyHttpsIsAsked_data()
{
    QTest::addColumn<QString>("feed");
    QTest::newRow("plain HTTP") << u"http://127.0.0.1/latest.json"_s;
    QTest::newRow("a file") << u"file:///latest.json"_s;
    QTest::newRow("empty") << QString();
}

void tst_ManifestFetch::onlyHttpsIsAsked()
{
    QFETCH(const QString, feed);
    const Answer got = ask(feed);
    QCOMPARE(got.count, 1);
    QCOMPARE(got.error, u"the feed “%1” isn't HTTPS"_s.arg(feed));
}

CORVANE_TEST(tst_ManifestFetch, QCoreApplication)
#include "tst_ManifestFetch.moc"
