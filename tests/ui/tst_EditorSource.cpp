#include "tests/support/Runner.h"
#include "tests/ui/EditorBench.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The page "Fonte": what each control sends, when, and to which pipeline.
class tst_EditorSource : public EditorPageTest
{
    Q_OBJECT

public:
    tst_EditorSource()
        : EditorPageTest(0)
    {
    }

private Q_SLOTS:
    void choiceSendsItsKey_data();
    void choiceSendsItsKey();
    void choiceByCodeSendsNothing();
    void textSendsItsKey_data();
    void textSendsItsKey();
    void focusLossSendsWithoutAnEdit_data();
    void focusLossSendsWithoutAnEdit();
    void returnAndFocusLossSendTwice();
    void danteStaysOn();
    void pastedLineBreaks_data();
    void pastedLineBreaks();
    void numberSendsItsKey_data();
    void numberSendsItsKey();
    void hiddenWithoutARuntime_data();
    void hiddenWithoutARuntime();
    void keepsWhatIsTypedOnANewSelection();
    void changeSendsOneKeyToTheNewSelection();
    void unfinishedEditGoesToTheSelectedPipeline();
};

void tst_EditorSource::choiceSendsItsKey_data()
{
    QTest::addColumn<QString>("combo");
    QTest::addColumn<int>("entry");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("change");

    auto kind = [entry = 0](const char *shown, const char *change) mutable {
        QTest::addRow("kind %s", shown)
            << u"srcKind"_s << entry++ << QString::fromLatin1(shown) << QString::fromLatin1(change);
    };
    kind("testpattern", "source.kind 4");
    kind("ndi", "source.kind 0");
    kind("srt", "source.kind 1");
    kind("capture", "source.kind 3");
    kind("decklink", "source.kind 2");
    kind("file", ""); // the record's value already

    auto fps = [entry = 0](const char *shown, const char *change) mutable {
        QTest::addRow("fps %s", shown)
            << u"fpsPicker"_s << entry++ << QString::fromLatin1(shown) << QString::fromLatin1(change);
    };
    fps("23.976", "source.fps 24");
    fps("24", "source.fps 24");
    fps("25", "source.fps 25");
    fps("29.97", "source.fps 30");
    fps("30", "source.fps 30");
    fps("50", "source.fps 50");
    fps("59.94", "source.fps 60");
    fps("60", "source.fps 60");
}

void tst_EditorSource::choiceSendsItsKey()
{
    QFETCH(QString, combo);
    QFETCH(int, entry);
    QFETCH(QString, change);

    RecordWatch record(*m_ui, m_id);
    m_ui->choose(combo, entry);
    QTEST(m_ui->value(combo, u"currentText"_s).toString(), "shown");
    QCOMPARE(record.changes(), change.isEmpty() ? QStringList() : QStringList(change));
    QCOMPARE(record.edits(), 1); // also where the choice changes nothing
}

void tst_EditorSource::choiceByCodeSendsNothing()
{
    RecordWatch record(*m_ui, m_id);
    m_ui->item(u"srcKind"_s)->setProperty("currentIndex", 3);
    m_ui->item(u"fpsPicker"_s)->setProperty("currentIndex", 0);
    m_ui->item(u"resW"_s)->setProperty("value", 640);
    m_ui->item(u"resH"_s)->setProperty("value", 480);
    m_ui->item(u"srcUriField"_s)->setProperty("text", u"by code"_s);
    m_ui->item(u"danteField"_s)->setProperty("text", u"by code"_s);
    QCOMPARE(record.edits(), 0);

    // An opened list that is left without a choice changes nothing either.
    m_ui->click(u"srcKind"_s);
    QTRY_VERIFY(m_ui->value(u"srcKind"_s, u"popup.opened"_s).toBool());
    m_ui->press(Qt::Key_Escape);
    QTRY_VERIFY(!m_ui->value(u"srcKind"_s, u"popup.visible"_s).toBool());
    QCOMPARE(record.edits(), 0);
}

void tst_EditorSource::textSendsItsKey_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("key");
    QTest::addColumn<QStringList>("changes");

    const QString uri = u"srcUriField"_s;
    const QString dante = u"danteField"_s;
    QTest::newRow("URI with Return") << uri << u"srt://host:9000"_s << int(Qt::Key_Return)
                                     << QStringList({u"source.uri srt://host:9000"_s});
    QTest::newRow("URI with Enter") << uri << u"C:\\vídeo um.mp4"_s << int(Qt::Key_Enter)
                                    << QStringList({u"source.uri C:\\vídeo um.mp4"_s});
    QTest::newRow("URI with Tab") << uri << u"STUDIO (Cam 1)"_s << int(Qt::Key_Tab)
                                  << QStringList({u"source.uri STUDIO (Cam 1)"_s});
    QTest::newRow("URI emptied") << uri << u""_s << int(Qt::Key_Return) << QStringList({u"source.uri "_s});
    QTest::newRow("URI with markup") << uri << u"<b>x</b>"_s << int(Qt::Key_Return)
                                     << QStringList({u"source.uri <b>x</b>"_s});
    QTest::newRow("Dante with Return")
        << dante << u"DVS Receive"_s << int(Qt::Key_Return)
        << QStringList({u"source.danteEnabled true"_s, u"source.danteDevice DVS Receive"_s});
    QTest::newRow("Dante with Tab") << dante << u"DVS 2"_s << int(Qt::Key_Tab)
                                    << QStringList(
                                           {u"source.danteEnabled true"_s, u"source.danteDevice DVS 2"_s});
    QTest::newRow("Dante left empty")
        << dante << u""_s << int(Qt::Key_Return) << QStringList({u"source.danteEnabled true"_s});
}

void tst_EditorSource::textSendsItsKey()
{
    QFETCH(QString, field);
    QFETCH(QString, text);
    QFETCH(int, key);

    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(field, text);
    QCOMPARE(m_ui->text(field), text);
    QCOMPARE(record.edits(), 0); // not while typing

    m_ui->press(Qt::Key(key));
    QTEST(record.changes(), "changes");
    QCOMPARE(record.edits(), 1);
    QCOMPARE(m_ui->text(field), text);
}

void tst_EditorSource::focusLossSendsWithoutAnEdit_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QStringList>("changes");

    QTest::newRow("an empty URI field clears the URI")
        << u"srcUriField"_s << u""_s << QStringList({u"source.uri "_s});
    QTest::newRow("a URI field that still shows another pipeline's text")
        << u"srcUriField"_s << u"left over"_s << QStringList({u"source.uri left over"_s});
    QTest::newRow("an empty Dante field turns Dante audio on")
        << u"danteField"_s << u""_s << QStringList({u"source.danteEnabled true"_s});
}

void tst_EditorSource::focusLossSendsWithoutAnEdit()
{
    QFETCH(QString, field);
    QFETCH(QString, shown);

    m_ui->item(field)->setProperty("text", shown);
    RecordWatch record(*m_ui, m_id);
    m_ui->click(field);
    QVERIFY(m_ui->item(field)->hasActiveFocus());
    QCOMPARE(record.edits(), 0);

    m_ui->click(u"tabFonte"_s);
    QVERIFY(!m_ui->item(field)->hasActiveFocus());
    QTEST(record.changes(), "changes");
    QCOMPARE(record.edits(), 1);
}

void tst_EditorSource::returnAndFocusLossSendTwice()
{
    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(u"srcUriField"_s, u"a"_s);
    m_ui->press(Qt::Key_Return);
    QCOMPARE(record.edits(), 1);
    m_ui->click(u"tabFonte"_s);
    QCOMPARE(record.edits(), 2);
    QCOMPARE(record.changes(), QStringList({u"source.uri a"_s}));
}

void tst_EditorSource::danteStaysOn()
{
    m_ui->replaceText(u"danteField"_s, u"DVS"_s);
    m_ui->press(Qt::Key_Return);
    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(u"danteField"_s, u""_s);
    m_ui->press(Qt::Key_Return);
    QCOMPARE(record.changes(), QStringList({u"source.danteDevice "_s}));
    QVERIFY(m_ui->config(m_id).source.danteEnabled);
}

void tst_EditorSource::pastedLineBreaks_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("pasted");

    for (const QString &field : {u"srcUriField"_s, u"danteField"_s}) {
        QTest::addRow("line feed in %s", qPrintable(field)) << field << u"first\nsecond"_s;
        QTest::addRow("both in %s", qPrintable(field)) << field << u"first\r\nsecond"_s;
        QTest::addRow("at the end in %s", qPrintable(field)) << field << u"firstsecond\n"_s;
    }
}

void tst_EditorSource::pastedLineBreaks()
{
    QFETCH(QString, field);
    QFETCH(QString, pasted);

    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(field, u""_s);
    m_ui->paste(pasted);
    QCOMPARE(record.edits(), 0); // a line break doesn't end the edit

    const QString shown = m_ui->text(field);
    QVERIFY2(shown.startsWith("first"_L1) && shown.contains("second"_L1), qPrintable(shown));
    m_ui->press(Qt::Key_Return);
    QCOMPARE(record.edits(), 1);
    const SourceConfig source = m_ui->config(m_id).source;
    QCOMPARE(field == "danteField"_L1 ? source.danteDevice : source.uri, shown);
}

void tst_EditorSource::numberSendsItsKey_data()
{
    QTest::addColumn<QString>("spinBox");
    QTest::addColumn<QString>("field");

    QTest::newRow("width") << u"resW"_s << u"source.width"_s;
    QTest::newRow("height") << u"resH"_s << u"source.height"_s;
}

void tst_EditorSource::numberSendsItsKey()
{
    QFETCH(QString, spinBox);
    QFETCH(QString, field);

    RecordWatch record(*m_ui, m_id);
    m_ui->replaceText(spinBox, u"1000"_s);
    QCOMPARE(record.edits(), 0); // not while typing
    m_ui->press(Qt::Key_Return);
    QCOMPARE(record.changes(), QStringList({field + " 1000"_L1}));
    QCOMPARE(record.edits(), 1);

    m_ui->step(spinBox, true);
    QCOMPARE(record.changes(), QStringList({field + " 1002"_L1}));
    m_ui->step(spinBox, false);
    m_ui->step(spinBox, false);
    QCOMPARE(record.changes(), QStringList({field + " 998"_L1}));
    QCOMPARE(record.edits(), 4);
}

void tst_EditorSource::hiddenWithoutARuntime_data()
{
    QTest::addColumn<QString>("item");

    QTest::newRow("choice of NDI sources") << u"ndiPicker"_s;
    QTest::newRow("DeckLink caption") << u"decklinkCaption"_s;
    QTest::newRow("DeckLink devices") << u"decklinkPicker"_s;
}

void tst_EditorSource::hiddenWithoutARuntime()
{
    QFETCH(QString, item);

    QVERIFY(m_ui->item(item));
    QVERIFY(m_ui->item(u"sourcePage"_s)->isVisible());
    QVERIFY(!m_ui->isShown(item));
}

void tst_EditorSource::keepsWhatIsTypedOnANewSelection()
{
    m_ui->choose(u"srcKind"_s, 3);
    m_ui->replaceText(u"srcUriField"_s, u"typed"_s);
    m_ui->replaceText(u"danteField"_s, u"device"_s);
    m_ui->replaceText(u"resW"_s, u"1280"_s);
    m_ui->replaceText(u"resH"_s, u"720"_s);
    m_ui->choose(u"fpsPicker"_s, 7);

    const QString other = m_ui->addUnusual();
    RecordWatch record(*m_ui, other);
    for (const QString &id : {m_id, other}) {
        m_ui->select(id);
        QCOMPARE(m_ui->value(u"srcKind"_s, u"currentText"_s).toString(), u"capture"_s);
        QCOMPARE(m_ui->text(u"srcUriField"_s), u"typed"_s);
        QCOMPARE(m_ui->text(u"danteField"_s), u"device"_s);
        QCOMPARE(m_ui->value(u"resW"_s, u"value"_s).toInt(), 1280);
        QCOMPARE(m_ui->value(u"resH"_s, u"value"_s).toInt(), 720);
        QCOMPARE(m_ui->value(u"fpsPicker"_s, u"currentText"_s).toString(), u"60"_s);
        QCOMPARE(m_ui->value(u"tabBar"_s, u"currentIndex"_s).toInt(), 0);
    }
    QCOMPARE(record.edits(), 0); // looking at a pipeline sends nothing
}

void tst_EditorSource::changeSendsOneKeyToTheNewSelection()
{
    m_ui->choose(u"srcKind"_s, 3);
    m_ui->choose(u"fpsPicker"_s, 7);

    const QString other = m_ui->addUnusual();
    RecordWatch mine(*m_ui, m_id);
    RecordWatch others(*m_ui, other);
    m_ui->choose(u"srcKind"_s, 2);
    QCOMPARE(others.changes(), QStringList({u"source.kind 1"_s}));
    QCOMPARE(mine.changes(), QStringList());

    m_ui->select(m_id);
    m_ui->choose(u"fpsPicker"_s, 0);
    QCOMPARE(mine.changes(), QStringList({u"source.fps 24"_s}));
    QCOMPARE(others.changes(), QStringList({u"source.kind 1"_s}));
}

void tst_EditorSource::unfinishedEditGoesToTheSelectedPipeline()
{
    const QString other = m_ui->addUnusual();
    m_ui->select(m_id);
    RecordWatch mine(*m_ui, m_id);
    RecordWatch others(*m_ui, other);

    m_ui->replaceText(u"srcUriField"_s, u"half way"_s);
    m_ui->select(other);
    m_ui->click(u"tabFonte"_s);
    QCOMPARE(mine.changes(), QStringList());
    QCOMPARE(others.changes(), QStringList({u"source.uri half way"_s}));
}

CORVANE_TEST(tst_EditorSource, corvane::test::WindowApplication)
#include "tst_EditorSource.moc"
