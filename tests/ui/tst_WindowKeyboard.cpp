#include "tests/support/Runner.h"
#include "tests/ui/Browser.h"
#include "tests/ui/EditorBench.h"

#include <QDesktopServices>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Transient parts of the window, without a mouse and for a screen reader: a row's stop button, the field for
/// a new name, the dialogs.
class tst_WindowKeyboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void rowStopButton_data();
    void rowStopButton();
    void rowStopButtonFollowsTheList();
    void clickedStopButtonHasNoFrame();
    void renameFieldIsNamed();
    void tabLeavesTheRenameField_data();
    void tabLeavesTheRenameField();
    void stopAllButtons();
    void stopAllByKey_data();
    void stopAllByKey();
    void aboutControls();
    void aboutClosesByKey();
    void linkOpensByKey_data();
    void linkOpensByKey();
    void dialogsKeepTheFocus_data();
    void dialogsKeepTheFocus();

private:
    QString onAir(const QString &name);
    void openByKey(const char *dialogName, const char *opener);
    void checkFocusIsSeen(const char *control);
    [[nodiscard]] QObject *dialog(const char *name) const { return m_ui->object(QString::fromLatin1(name)); }
    [[nodiscard]] bool isOpen(const char *name) const { return dialog(name)->property("visible").toBool(); }
    [[nodiscard]] QQuickItem *closeButton() const;

    std::unique_ptr<EditorBench> m_ui;
};

void tst_WindowKeyboard::init()
{
    m_ui = std::make_unique<EditorBench>();
}

void tst_WindowKeyboard::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
}

/// A running pipeline. An output was added to it, so its figures don't refresh the rows.
QString tst_WindowKeyboard::onAir(const QString &name)
{
    QString id = m_ui->addFake(u"progress"_s, name);
    m_ui->engine().startPipeline(id);
    [&] {
        QTRY_COMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Running);
        m_ui->awaitRows();
        QTRY_VERIFY(m_ui->item(u"rowStopButton"_s));
    }();
    return id;
}

void tst_WindowKeyboard::openByKey(const char *dialogName, const char *opener)
{
    m_ui->focusByTab(QString::fromLatin1(opener));
    m_ui->press(Qt::Key_Space);
    QTRY_VERIFY(dialog(dialogName)->property("opened").toBool());
}

void tst_WindowKeyboard::checkFocusIsSeen(const char *control)
{
    QCOMPARE(m_ui->focused(), QString::fromLatin1(control));
    QVERIFY2(m_ui->value(QString::fromLatin1(control), u"visualFocus"_s).toBool(), control);
}

QQuickItem *tst_WindowKeyboard::closeButton() const
{
    QQuickItem *close = nullptr;
    auto *footer = dialog("aboutDialog")->property("footer").value<QQuickItem *>();
    QMetaObject::invokeMethod(footer, "itemAt", Q_RETURN_ARG(QQuickItem *, close), Q_ARG(int, 0));
    return close;
}

// --- The rows

void tst_WindowKeyboard::rowStopButton_data()
{
    QTest::addColumn<int>("key");

    QTest::newRow("space bar") << int(Qt::Key_Space);
    QTest::newRow("Return") << int(Qt::Key_Return);
    QTest::newRow("Enter") << int(Qt::Key_Enter);
}

void tst_WindowKeyboard::rowStopButton()
{
    QFETCH(const int, key);
    const QString id = onAir(u"Palco"_s);
    m_ui->focusByTab(u"rowStopButton"_s);
    checkFocusIsSeen("rowStopButton");
    QCOMPARE(EditorBench::spokenName(m_ui->item(u"rowStopButton"_s)), u"Parar Palco"_s);

    m_ui->press(Qt::Key(key));
    QCOMPARE(m_ui->text(u"rowStopButton"_s), u"Confirmar?"_s);
    QCOMPARE(EditorBench::spokenName(m_ui->item(u"rowStopButton"_s)), u"Confirmar parada de Palco"_s);
    QCOMPARE(m_ui->focused(), u"rowStopButton"_s);
    QCOMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Running);

    m_ui->press(Qt::Key(key));
    QTRY_COMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Stopped);
    QTRY_VERIFY(!m_ui->item(u"rowStopButton"_s));
    // The row was recreated, without a button: the next Tab goes on from the list.
    m_ui->focusByTab(u"pipelineList"_s);
}

void tst_WindowKeyboard::rowStopButtonFollowsTheList()
{
    onAir(u"Palco"_s);
    m_ui->focusByTab(u"pipelineList"_s);
    m_ui->press(Qt::Key_Tab);
    QCOMPARE(m_ui->focused(), u"rowStopButton"_s);
    m_ui->press(Qt::Key_Tab);
    QCOMPARE(m_ui->focused(), u"emptyAddButton"_s);
    m_ui->press(Qt::Key_Backtab, Qt::ShiftModifier);
    QCOMPARE(m_ui->focused(), u"rowStopButton"_s);
}

void tst_WindowKeyboard::clickedStopButtonHasNoFrame()
{
    onAir(u"Palco"_s);
    const auto hasFrame = [&] { return m_ui->isShown(u"pipelineListFocus"_s); };
    m_ui->click(u"rowStopButton"_s);
    QCOMPARE(m_ui->focused(), u"rowStopButton"_s);
    QVERIFY(!hasFrame());
    m_ui->engine().addPipeline(u"Coro"_s); // renews the rows, and with them the button
    QTRY_COMPARE(m_ui->focused(), u"pipelineList"_s);
    QVERIFY(!hasFrame());
    m_ui->press(Qt::Key_Down);
    QVERIFY(hasFrame());
    m_ui->focusByTab(u"rowStopButton"_s);
    QVERIFY(hasFrame());
}

void tst_WindowKeyboard::renameFieldIsNamed()
{
    m_ui->engine().addPipeline(u"Palco"_s);
    QTRY_VERIFY(m_ui->row(0));
    m_ui->doubleClick(m_ui->item(u"nameLabel"_s));
    QTRY_VERIFY(m_ui->item(u"renameField"_s));
    QCOMPARE(m_ui->focused(), u"renameField"_s);
    QCOMPARE(EditorBench::spokenName(m_ui->item(u"renameField"_s)), u"Novo nome da stream"_s);
    QVERIFY(m_ui->showsFocus(u"renameField"_s));
    QCOMPARE(m_ui->value(u"renameField"_s, u"cursorVisible"_s), QVariant(true));
}

void tst_WindowKeyboard::tabLeavesTheRenameField_data()
{
    QTest::addColumn<int>("key");

    QTest::newRow("Tab") << int(Qt::Key_Tab);
    QTest::newRow("Shift and Tab") << int(Qt::Key_Backtab);
}

void tst_WindowKeyboard::tabLeavesTheRenameField()
{
    QFETCH(const int, key);
    const QString id = m_ui->engine().addPipeline(u"Palco"_s);
    QTRY_VERIFY(m_ui->row(0));
    m_ui->doubleClick(m_ui->item(u"nameLabel"_s));
    QTRY_VERIFY(m_ui->item(u"renameField"_s));
    m_ui->type(u"Coro"_s);
    m_ui->press(Qt::Key(key), key == Qt::Key_Backtab ? Qt::ShiftModifier : Qt::NoModifier);
    QTRY_VERIFY(!m_ui->item(u"renameField"_s));
    QCOMPARE(m_ui->config(id).name, u"Coro"_s);
    QVERIFY(!m_ui->focused().isEmpty());
}

// --- Stop all

void tst_WindowKeyboard::stopAllButtons()
{
    onAir(u"Palco"_s);
    openByKey("stopAllDialog", "stopAllButton");
    QCOMPARE(EditorBench::spokenName(m_ui->item(u"stopAllCancel"_s)), u"Cancelar"_s);
    QCOMPARE(EditorBench::spokenName(m_ui->item(u"stopAllAccept"_s)), u"Parar tudo"_s);
    for (const char *button : {"stopAllCancel", "stopAllAccept"}) {
        m_ui->focusByTab(QString::fromLatin1(button));
        checkFocusIsSeen(button);
    }
}

void tst_WindowKeyboard::stopAllByKey_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("stops");

    QTest::newRow("cancel, space bar") << u"stopAllCancel"_s << int(Qt::Key_Space) << false;
    QTest::newRow("cancel, Return") << u"stopAllCancel"_s << int(Qt::Key_Return) << false;
    QTest::newRow("stop, space bar") << u"stopAllAccept"_s << int(Qt::Key_Space) << true;
    QTest::newRow("stop, Return") << u"stopAllAccept"_s << int(Qt::Key_Return) << true;
    QTest::newRow("stop, Enter") << u"stopAllAccept"_s << int(Qt::Key_Enter) << true;
}

void tst_WindowKeyboard::stopAllByKey()
{
    QFETCH(const QString, button);
    QFETCH(const int, key);
    QFETCH(const bool, stops);
    const QString id = onAir(u"Palco"_s);
    openByKey("stopAllDialog", "stopAllButton");
    m_ui->focusByTab(button);
    m_ui->press(Qt::Key(key));
    QTRY_VERIFY(!isOpen("stopAllDialog"));
    if (stops) {
        QTRY_COMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Stopped);
    } else {
        QCOMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Running);
        QTRY_COMPARE(m_ui->focused(), u"stopAllButton"_s); // back where it was
    }
}

// --- About

void tst_WindowKeyboard::aboutControls()
{
    openByKey("aboutDialog", "aboutButton");
    m_ui->focusByTab(u"ndiLink"_s);
    QVERIFY(m_ui->isShown(u"ndiLinkFocus"_s));
    QCOMPARE(EditorBench::spokenName(m_ui->item(u"ndiLink"_s)), u"https://ndi.video"_s);
    m_ui->press(Qt::Key_Tab);
    QVERIFY(!m_ui->isShown(u"ndiLinkFocus"_s));
    QVERIFY(closeButton()->hasActiveFocus());
    QVERIFY(closeButton()->property("visualFocus").toBool());
    QCOMPARE(EditorBench::spokenName(closeButton()), u"Fechar"_s);
}

void tst_WindowKeyboard::aboutClosesByKey()
{
    openByKey("aboutDialog", "aboutButton");
    m_ui->focusByTab(u"ndiLink"_s);
    m_ui->press(Qt::Key_Tab);
    m_ui->press(Qt::Key_Space);
    QTRY_VERIFY(!isOpen("aboutDialog"));
    QTRY_COMPARE(m_ui->focused(), u"aboutButton"_s);
}

void tst_WindowKeyboard::linkOpensByKey_data()
{
    QTest::addColumn<int>("key");

    QTest::newRow("Return") << int(Qt::Key_Return);
    QTest::newRow("Enter") << int(Qt::Key_Enter);
}

void tst_WindowKeyboard::linkOpensByKey()
{
    QFETCH(const int, key);
    Browser browser;
    QDesktopServices::setUrlHandler(u"https"_s, &browser, "open");
    openByKey("aboutDialog", "aboutButton");
    m_ui->focusByTab(u"ndiLink"_s);
    m_ui->press(Qt::Key(key));
    QDesktopServices::unsetUrlHandler(u"https"_s);
    QCOMPARE(browser.opened, QStringList{u"https://ndi.video"_s});
    QVERIFY(isOpen("aboutDialog"));
}

// --- Both

void tst_WindowKeyboard::dialogsKeepTheFocus_data()
{
    QTest::addColumn<QString>("opener");

    QTest::newRow("stopAllDialog") << u"stopAllButton"_s;
    QTest::newRow("aboutDialog") << u"aboutButton"_s;
}

void tst_WindowKeyboard::dialogsKeepTheFocus()
{
    QFETCH(const QString, opener);
    onAir(u"Palco"_s);
    openByKey(QTest::currentDataTag(), opener.toLatin1().constData());
    const auto *content = dialog(QTest::currentDataTag())->property("contentItem").value<QQuickItem *>();
    const QQuickItem *whole = content->parentItem();
    for (int presses = 0; presses < 8; ++presses) {
        const QQuickItem *focused = m_ui->window().activeFocusItem();
        QVERIFY2(focused && (focused == whole || whole->isAncestorOf(focused)), qPrintable(m_ui->focused()));
        m_ui->press(Qt::Key_Tab);
    }
}

CORVANE_TEST(tst_WindowKeyboard, corvane::test::WindowApplication)
#include "tst_WindowKeyboard.moc"
