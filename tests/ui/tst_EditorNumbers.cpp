#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QRegularExpression>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Reaction of the editable number fields to keys and to numbers outside their range.
class tst_EditorNumbers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void bounds_data();
    void bounds();
    void outOfRange_data();
    void outOfRange();
    void arrowKeys_data();
    void arrowKeys();
    void pastedNumbers_data();
    void pastedNumbers();

private:
    [[nodiscard]] int number(const QString &spinBox) const
    {
        return m_ui->value(spinBox, u"value"_s).toInt();
    }
    [[nodiscard]] QString shownDigits(const QString &spinBox) const;
    /// The record's value behind a number field of the two first pages; -1 where there is none.
    [[nodiscard]] int recorded(const QString &spinBox) const;
    void open(const QString &spinBox, int start);

    std::unique_ptr<EditorBench> m_ui;
    QString m_id;
};

namespace {

struct NumberField
{
    const char *name;
    int page;
    int from;
    int to;
    int stepSize;
};

constexpr NumberField numberFields[] = {
    {"resW", 0, 320, 7680, 2},           {"resH", 0, 240, 4320, 2},
    {"encBitrate", 1, 500, 50000, 500},  {"encKeyint", 1, 1, 10, 1},
    {"encAudioBitrate", 1, 64, 512, 32}, {"srtLatency", 2, 20, 8000, 10},
    {"srtOheadbw", 2, 0, 100, 1},        {"srtMaxbw", 2, 0, 100000000, 100000},
    {"srtlaPort", 2, 1, 65535, 1},
};

const NumberField &fieldCalled(const QString &name)
{
    return *std::find_if(std::begin(numberFields), std::end(numberFields),
                         [&](const NumberField &field) { return name == QLatin1String(field.name); });
}

} // namespace

void tst_EditorNumbers::initTestCase()
{
    m_ui = std::make_unique<EditorBench>();
}

void tst_EditorNumbers::init()
{
    m_ui->removeAll();
    m_id = m_ui->addUnusual();
}

void tst_EditorNumbers::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
}

QString tst_EditorNumbers::shownDigits(const QString &spinBox) const
{
    // Thousands are separated as in the locale.
    static const QRegularExpression separator(u"[^0-9-]"_s);
    return m_ui->value(spinBox, u"contentItem.text"_s).toString().remove(separator);
}

int tst_EditorNumbers::recorded(const QString &spinBox) const
{
    const PipelineConfig config = m_ui->config(m_id);
    const QHash<QString, int> values{
        {u"resW"_s, config.source.width},
        {u"resH"_s, config.source.height},
        {u"encBitrate"_s, config.encoder.bitrate},
        {u"encKeyint"_s, config.encoder.keyintSec},
        {u"encAudioBitrate"_s, config.encoder.audioBitrate},
    };
    return values.value(spinBox, -1);
}

void tst_EditorNumbers::open(const QString &spinBox, int start)
{
    m_ui->openTab(fieldCalled(spinBox).page);
    m_ui->item(spinBox)->setProperty("value", start);
    QCOMPARE(number(spinBox), start);
}

void tst_EditorNumbers::bounds_data()
{
    QTest::addColumn<QString>("spinBox");
    for (const NumberField &field : numberFields)
        QTest::newRow(field.name) << QString::fromLatin1(field.name);
}

void tst_EditorNumbers::bounds()
{
    QFETCH(QString, spinBox);
    const NumberField &field = fieldCalled(spinBox);

    // The buttons stop at the ends, and a step that changes nothing sends nothing.
    open(spinBox, field.to - field.stepSize);
    m_ui->step(spinBox, true);
    QCOMPARE(number(spinBox), field.to);
    RecordWatch record(*m_ui, m_id);
    m_ui->step(spinBox, true);
    QCOMPARE(number(spinBox), field.to);
    QCOMPARE(record.edits(), 0);

    open(spinBox, field.from + field.stepSize);
    m_ui->step(spinBox, false);
    QCOMPARE(number(spinBox), field.from);
    record.restart();
    m_ui->step(spinBox, false);
    QCOMPARE(number(spinBox), field.from);
    QCOMPARE(record.edits(), 0);

    // An end is still reached from half a step away.
    if (field.stepSize > 1) {
        open(spinBox, field.to - 1);
        m_ui->step(spinBox, true);
        QCOMPARE(number(spinBox), field.to);
        if (field.page < 2)
            QCOMPARE(recorded(spinBox), field.to);
    }
}

void tst_EditorNumbers::outOfRange_data()
{
    QTest::addColumn<QString>("spinBox");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("acceptable");

    for (const NumberField &field : numberFields) {
        const QString name = QString::fromLatin1(field.name);
        QTest::addRow("%s just above", field.name) << name << QString::number(field.to + 1) << false;
        QTest::addRow("%s far above", field.name) << name << u"999999999999"_s << false;
        if (field.from > 0)
            QTest::addRow("%s below", field.name) << name << QString::number(field.from - 1) << false;
        QTest::addRow("%s negative", field.name) << name << u"-5"_s << false;
        QTest::addRow("%s no number", field.name) << name << u"abc"_s << false;
        QTest::addRow("%s at the upper end", field.name) << name << QString::number(field.to) << true;
        QTest::addRow("%s at the lower end", field.name) << name << QString::number(field.from) << true;
    }
}

void tst_EditorNumbers::outOfRange()
{
    QFETCH(QString, spinBox);
    QFETCH(QString, typed);
    QFETCH(bool, acceptable);
    const NumberField &field = fieldCalled(spinBox);
    const int start = field.from + (field.to - field.from) / 2;

    open(spinBox, start);
    const int before = recorded(spinBox);
    m_ui->replaceText(spinBox, typed);
    m_ui->press(Qt::Key_Return);
    m_ui->press(Qt::Key_Tab);

    // Whatever was typed, the values shown, held and sent agree, and lie in the range.
    const int now = number(spinBox);
    QVERIFY2(now >= field.from && now <= field.to, qPrintable(QString::number(now)));
    QCOMPARE(shownDigits(spinBox), QString::number(now));
    if (acceptable)
        QCOMPARE(QString::number(now), typed);
    if (field.page < 2)
        QCOMPARE(recorded(spinBox), now == start ? before : now);
    else
        QCOMPARE(m_ui->config(m_id).outputs.size(), 0);
}

void tst_EditorNumbers::arrowKeys_data()
{
    bounds_data();
}

void tst_EditorNumbers::arrowKeys()
{
    QFETCH(QString, spinBox);
    const NumberField &field = fieldCalled(spinBox);
    const int start = field.from + field.stepSize;

    open(spinBox, start);
    m_ui->click(spinBox);
    m_ui->press(Qt::Key_Up);
    QCOMPARE(number(spinBox), start + field.stepSize);
    if (field.page < 2)
        QCOMPARE(recorded(spinBox), start + field.stepSize);
    m_ui->press(Qt::Key_Down);
    m_ui->press(Qt::Key_Down);
    m_ui->press(Qt::Key_Down); // once more than there is room
    QCOMPARE(number(spinBox), field.from);
    if (field.page < 2)
        QCOMPARE(recorded(spinBox), field.from);
}

void tst_EditorNumbers::pastedNumbers_data()
{
    QTest::addColumn<QString>("pasted");

    QTest::newRow("line break behind") << u"1280\n"_s;
    QTest::newRow("line break within") << u"12\n80"_s;
    QTest::newRow("spaces around") << u" 1280 "_s;
    QTest::newRow("words") << u"1280 pixels"_s;
    QTest::newRow("markup") << u"<b>1280</b>"_s;
    QTest::newRow("too large") << u"99999999999999999999"_s;
}

void tst_EditorNumbers::pastedNumbers()
{
    QFETCH(QString, pasted);

    open(u"resW"_s, 1920);
    m_ui->replaceText(u"resW"_s, u""_s);
    m_ui->paste(pasted);
    m_ui->press(Qt::Key_Return);
    m_ui->press(Qt::Key_Tab);

    const int now = number(u"resW"_s);
    QVERIFY2(now >= 320 && now <= 7680, qPrintable(QString::number(now)));
    QCOMPARE(shownDigits(u"resW"_s), QString::number(now));
    QCOMPARE(recorded(u"resW"_s), now == 1920 ? 322 : now);
}

CORVANE_TEST(tst_EditorNumbers, corvane::test::WindowApplication)
#include "tst_EditorNumbers.moc"
