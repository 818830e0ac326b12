#include "tests/ui/LookTable.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Renaming a stream in its row. Each call of the Engine rebuilds the rows: items are looked up anew.
class tst_WindowRename : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void opensOnDoubleClick();
    void writesTheName_data();
    void writesTheName();
    void focusLossWritesTheName_data();
    void focusLossWritesTheName();
    void escapeMakesNoCall();
    void opensAgainAfterEscape();
    void namelessOpensEmpty();
    void pastedLineBreaks();
    void longName();
    void rebuildDropsTheField();
    void goneBeforeReturn();

private:
    void openField();
    [[nodiscard]] QQuickItem *field() const { return m_ui->item(u"renameField"_s); }
    [[nodiscard]] QString shownName() const
    {
        return lookText(m_ui->item(u"nameLabel"_s, m_ui->row(0)), u"text"_s);
    }

    std::unique_ptr<Interface> m_ui;
    std::unique_ptr<QSignalSpy> m_rebuilds;
    QString m_id;
};

void tst_WindowRename::init()
{
    m_ui = std::make_unique<Interface>();
    m_id = m_ui->engine().addPipeline(u"Palco"_s);
    m_rebuilds = std::make_unique<QSignalSpy>(&m_ui->engine(), &Engine::pipelinesChanged);
    QTRY_VERIFY(m_ui->row(0));
}

void tst_WindowRename::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
    m_rebuilds.reset();
    m_ui.reset();
}

void tst_WindowRename::openField()
{
    m_ui->awaitRest(); // a row that is renewed takes its field along
    m_ui->doubleClick(m_ui->item(u"nameLabel"_s));
    QTRY_VERIFY(field());
}

void tst_WindowRename::opensOnDoubleClick()
{
    QVERIFY(!field());
    openField();
    QVERIFY(field()->isVisible());
    QVERIFY(!m_ui->item(u"nameLabel"_s)->isVisible());
    QVERIFY(m_ui->row(0)->property("renaming").toBool());
    QVERIFY(field()->hasActiveFocus());
    QCOMPARE(lookText(field(), u"text"_s), u"Palco"_s);
    QCOMPARE(lookText(field(), u"selectedText"_s), u"Palco"_s);
    QCOMPARE(lookText(field(), u"font.pixelSize"_s), u"13"_s);
    QTRY_COMPARE(field()->width(), m_ui->item(u"rowColumn"_s, m_ui->row(0))->width());
    QCOMPARE(m_ui->selectedId(), m_id);
    QCOMPARE(m_rebuilds->count(), 0);
}

void tst_WindowRename::writesTheName_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("shown");

    QTest::newRow("another name") << u"Estúdio B"_s << u"Estúdio B"_s;
    QTest::newRow("an empty name") << QString() << u"Stream 1"_s;
    QTest::newRow("blanks") << u"   "_s << u"   "_s;
    QTest::newRow("the same name") << u"Palco"_s << u"Palco"_s;
    QTest::newRow("emoji") << u"📡 ao vivo"_s << u"📡 ao vivo"_s;
    QTest::newRow("right to left") << u"שלום עולם"_s << u"שלום עולם"_s;
}

void tst_WindowRename::writesTheName()
{
    QFETCH(const QString, typed);
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
        m_ui->engine().renamePipeline(m_id, u"Palco"_s);
        m_rebuilds->clear();
        openField();
        if (typed.isEmpty())
            m_ui->press(Qt::Key_Delete); // all of it is selected
        else
            m_ui->type(typed);
        m_ui->press(key);
        QTRY_VERIFY(!field());
        QCOMPARE(m_ui->config(m_id).name, typed);
        QCOMPARE(m_rebuilds->count(), 1); // one call, and no second by the loss of focus
        m_ui->awaitRest();
        QTRY_VERIFY(m_ui->row(0));
        QVERIFY(!m_ui->row(0)->property("renaming").toBool());
        QTEST(shownName(), "shown");
    }
}

void tst_WindowRename::focusLossWritesTheName_data()
{
    QTest::addColumn<QString>("elsewhere");

    QTest::newRow("a tab") << u"tabEncoder"_s;
    QTest::newRow("the log") << u"logArea"_s;
    QTest::newRow("a field") << u"srcUriField"_s;
}

void tst_WindowRename::focusLossWritesTheName()
{
    QFETCH(const QString, elsewhere);
    openField();
    m_ui->type(u"Palco 2"_s);
    m_ui->click(elsewhere);
    QTRY_VERIFY(!field());
    QCOMPARE(m_ui->config(m_id).name, u"Palco 2"_s);
    QCOMPARE(m_rebuilds->count(), 1);
    m_ui->awaitRest();
    QTRY_VERIFY(m_ui->row(0));
    QCOMPARE(shownName(), u"Palco 2"_s);
}

void tst_WindowRename::escapeMakesNoCall()
{
    openField();
    m_ui->type(u"engano"_s);
    m_ui->press(Qt::Key_Escape);
    QTRY_VERIFY(!field());
    QVERIFY(!m_ui->row(0)->property("renaming").toBool());
    QVERIFY(m_ui->item(u"nameLabel"_s)->isVisible());
    QCOMPARE(shownName(), u"Palco"_s);
    m_ui->click(u"tabEncoder"_s);
    QCOMPARE(m_rebuilds->count(), 0);
    QCOMPARE(m_ui->config(m_id).name, u"Palco"_s);
}

void tst_WindowRename::opensAgainAfterEscape()
{
    openField();
    m_ui->type(u"engano"_s);
    m_ui->press(Qt::Key_Escape);
    QTRY_VERIFY(!field());
    openField();
    QVERIFY(field()->hasActiveFocus());
    QCOMPARE(lookText(field(), u"text"_s), u"Palco"_s);
    QCOMPARE(lookText(field(), u"selectedText"_s), u"Palco"_s);
}

void tst_WindowRename::namelessOpensEmpty()
{
    m_ui->engine().renamePipeline(m_id, {});
    m_ui->awaitRest();
    QTRY_VERIFY(m_ui->row(0));
    QCOMPARE(shownName(), u"Stream 1"_s);
    openField();
    QCOMPARE(lookText(field(), u"text"_s), QString());
    m_ui->type(u"Novo"_s);
    m_ui->press(Qt::Key_Return);
    QCOMPARE(m_ui->config(m_id).name, u"Novo"_s);
}

void tst_WindowRename::pastedLineBreaks()
{
    const qreal oneLine = m_ui->row(0)->height();
    QGuiApplication::clipboard()->setText(u"um\ndois\r\ntrês"_s);
    openField();
    m_ui->press(Qt::Key_V, Qt::ControlModifier);
    const QString pasted = lookText(field(), u"text"_s);
    QVERIFY2(pasted.startsWith("um"_L1) && pasted.contains("dois"_L1) && pasted.endsWith(u"três"_s),
             qPrintable(pasted));
    m_ui->press(Qt::Key_Return);
    QCOMPARE(m_ui->config(m_id).name, pasted);
    m_ui->awaitRest();
    QTRY_VERIFY(m_ui->row(0));
    QCOMPARE(shownName(), pasted);
    QTRY_COMPARE(m_ui->row(0)->height(), oneLine);
}

void tst_WindowRename::longName()
{
    const QString name = u"Praça "_s.repeated(10000 / 6) + u"fim."_s;
    QCOMPARE(name.size(), 10000);
    const qreal oneLine = m_ui->row(0)->height();
    QGuiApplication::clipboard()->setText(name);
    openField();
    m_ui->press(Qt::Key_V, Qt::ControlModifier);
    m_ui->press(Qt::Key_Return);
    QCOMPARE(m_ui->config(m_id).name, name);
    m_ui->awaitRest();
    QTRY_VERIFY(m_ui->row(0));
    QCOMPARE(shownName(), name);
    QTRY_COMPARE(m_ui->row(0)->height(), oneLine);
    QVERIFY(m_ui->item(u"nameLabel"_s)->width() < 280);
    QVERIFY(m_ui->item(u"nameLabel"_s)->property("truncated").toBool());

    openField();
    QCOMPARE(lookText(field(), u"selectedText"_s), name);
    m_ui->press(Qt::Key_Escape);
}

void tst_WindowRename::rebuildDropsTheField()
{
    openField();
    m_ui->type(u"a meio"_s);
    m_ui->engine().addPipeline({});
    QTRY_VERIFY(m_ui->row(1));
    QTRY_VERIFY(!field());
    QVERIFY(!m_ui->row(0)->property("renaming").toBool());
}

void tst_WindowRename::goneBeforeReturn()
{
    openField();
    m_ui->type(u"tarde"_s);
    {
        // Rows of before: the list hears of the removal after the key.
        const QSignalBlocker unheard(m_ui->engine());
        m_ui->engine().removePipeline(m_id);
    }
    m_ui->press(Qt::Key_Return);
    QVERIFY(m_ui->engine().pipelines().isEmpty());
}

QTEST_MAIN(tst_WindowRename)
#include "tst_WindowRename.moc"
