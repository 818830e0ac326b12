// Questions of the editor to the advice, and what it makes of the answers.

#include "engine/Advice.h"
#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QStringList questions;
QVariantMap answer; ///< to every question on SRT

} // namespace

// Replacements that the Engine calls: the library's own don't come into the program.

QVariantMap corvane::bitrateAdvice(int width, int height, int fps)
{
    questions << u"bitrate %1 %2 %3"_s.arg(width).arg(height).arg(fps);
    const QVariantMap platforms{{u"twitch"_s, QVariantMap{{u"maxBitrate"_s, 16}, {u"maxRes"_s, u"?"_s}}},
                                {u"youtube"_s, QVariantMap{{u"maxBitrate"_s, 17}, {u"maxRes"_s, u"?"_s}}}};
    return {{u"recommended"_s, 11}, {u"min"_s, 12},    {u"max"_s, 13},
            {u"bufsize"_s, 14},     {u"keyint"_s, 15}, {u"platforms"_s, platforms}};
}

QVariantMap corvane::encoderAdvice(const QStringList &availableEncoders, int width, int height, int fps)
{
    questions << u"encoder %1 %2 %3 %4"_s.arg(availableEncoders.join(u'+')).arg(width).arg(height).arg(fps);
    return {{u"encoder"_s, u"e"_s},         {u"hwLabel"_s, u"l"_s},
            {u"presetHint"_s, u"p"_s},      {u"hevcAvailable"_s, false},
            {u"hevcEncoder"_s, u"never"_s}, {u"av1Available"_s, true},
            {u"av1Encoder"_s, u"a"_s},      {u"tip"_s, u"t"_s}};
}

QVariantMap corvane::srtParamAdvice(const QString &scenario)
{
    questions << u"srt "_s + scenario;
    return answer;
}

class tst_EditorAdviceCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup() { QCOMPARE(m_ui->warnings(), QStringList()); }
    void scenarioKeys();
    void scenarioFigures_data();
    void scenarioFigures();
    void sizesOfAQuestion_data();
    void sizesOfAQuestion();
    void figuresOfTheTip();

private:
    [[nodiscard]] int number(const QString &spinBox) const
    {
        return m_ui->value(spinBox, u"value"_s).toInt();
    }
    void enter(const QString &spinBox, int value);

    std::unique_ptr<EditorBench> m_ui;
};

void tst_EditorAdviceCalls::initTestCase()
{
    m_ui = std::make_unique<EditorBench>("libx264 h264_qsv");
    m_ui->addPipeline();
}

void tst_EditorAdviceCalls::init()
{
    questions.clear();
    answer.clear();
    // A tip that is still open takes the next clicks for its own.
    QMetaObject::invokeMethod(m_ui->object(u"bitrateAdviceTip"_s), "close");
    QTRY_VERIFY(!m_ui->value(u"bitrateAdviceTip"_s, u"visible"_s).toBool());
}

void tst_EditorAdviceCalls::enter(const QString &spinBox, int value)
{
    m_ui->replaceText(spinBox, QString::number(value));
    m_ui->press(Qt::Key_Return);
    QCOMPARE(number(spinBox), value);
}

void tst_EditorAdviceCalls::scenarioKeys()
{
    m_ui->openTab(2);
    for (int entry = 1; entry <= 5; ++entry)
        m_ui->choose(u"srtScenario"_s, entry);
    m_ui->choose(u"srtScenario"_s, 0);
    QCOMPARE(questions,
             QStringList({u"srt lan"_s, u"srt fiber"_s, u"srt irl"_s, u"srt srtla"_s, u"srt relay"_s}));
}

void tst_EditorAdviceCalls::scenarioFigures_data()
{
    QTest::addColumn<QVariantMap>("advice");
    QTest::addColumn<QList<int>>("figures"); // latency, overhead, bandwidth

    const auto map = [](int latency, int oheadbw, int maxbw) {
        return QVariantMap{{u"latency"_s, latency}, {u"oheadbw"_s, oheadbw}, {u"maxbw"_s, maxbw}};
    };
    QTest::newRow("as advised") << map(777, 33, 500000) << QList({777, 33, 500000});
    QTest::newRow("nothing advised") << QVariantMap() << QList({120, 25, 0});
    QTest::newRow("zeros") << map(0, 0, 0) << QList({120, 25, 0});
    QTest::newRow("latency alone") << QVariantMap{{u"latency"_s, 50}} << QList({50, 25, 0});
    QTest::newRow("overhead alone") << QVariantMap{{u"oheadbw"_s, 1}} << QList({120, 1, 0});
    QTest::newRow("bandwidth alone") << QVariantMap{{u"maxbw"_s, 1}} << QList({120, 25, 1});
    QTest::newRow("other keys") << QVariantMap{{u"rcvbuf"_s, 9}, {u"description"_s, u"x"_s}}
                                << QList({120, 25, 0});
}

void tst_EditorAdviceCalls::scenarioFigures()
{
    QFETCH(const QVariantMap, advice);
    QFETCH(const QList<int>, figures);
    m_ui->openTab(2);
    enter(u"srtLatency"_s, 3000);
    enter(u"srtOheadbw"_s, 99);
    enter(u"srtMaxbw"_s, 700000);
    answer = advice;

    m_ui->choose(u"srtScenario"_s, 3);

    QCOMPARE(QList({number(u"srtLatency"_s), number(u"srtOheadbw"_s), number(u"srtMaxbw"_s)}), figures);
}

void tst_EditorAdviceCalls::sizesOfAQuestion_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("fpsEntry");
    QTest::addColumn<QString>("figures");

    QTest::newRow("as the editor starts") << 1920 << 1080 << 4 << u"1920 1080 30"_s;
    QTest::newRow("others") << 1280 << 722 << 7 << u"1280 722 60"_s;
    QTest::newRow("a fraction is cut off") << 322 << 4318 << 6 << u"322 4318 59"_s;
}

void tst_EditorAdviceCalls::sizesOfAQuestion()
{
    QFETCH(const int, width);
    QFETCH(const int, height);
    QFETCH(const int, fpsEntry);
    QFETCH(const QString, figures);
    m_ui->openTab(0);
    enter(u"resW"_s, width);
    enter(u"resH"_s, height);
    m_ui->choose(u"fpsPicker"_s, fpsEntry);
    m_ui->openTab(1);
    questions.clear();

    m_ui->click(u"detectHwButton"_s);
    m_ui->click(u"suggestButton"_s);

    QCOMPARE(questions, QStringList({u"encoder libx264+h264_qsv "_s + figures, u"bitrate "_s + figures}));
    QCOMPARE(m_ui->text(u"encAdviceText"_s), u"l (e)\nPreset: p\nAV1 disponivel: a\nt"_s);
}

void tst_EditorAdviceCalls::figuresOfTheTip()
{
    m_ui->openTab(1);
    m_ui->click(u"suggestButton"_s);
    QCOMPARE(m_ui->text(u"bitrateAdviceTip"_s), u"Recomendado: 11kbps (min 12 / max 13)\n"
                                                "bufsize: 14k | GOP: 15 frames\n"
                                                "Twitch max: 16 | YouTube max: 17"_s);
}

CORVANE_TEST(tst_EditorAdviceCalls, corvane::test::WindowApplication)
#include "tst_EditorAdviceCalls.moc"
