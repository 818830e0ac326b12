#include "tests/support/TestSupport.h"
#include "tests/ui/LookTable.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Takes the place of the system's browser.
class Browser : public QObject
{
    Q_OBJECT

public:
    QStringList opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened << url.toString(); }
};

class tst_WindowDialogs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void modalAndCentred_data();
    void modalAndCentred();
    void stopAllCounts_data();
    void stopAllCounts();
    void stopAllCountFollows();
    void accept();
    void reject_data();
    void reject();
    void aboutCloses();
    void easterLine_data();
    void easterLine();
    void easterLineTimesOut();
    void linkOpensInTheBrowser();

private:
    void openStopAll();
    void openAbout();
    void clickArt(int times);
    [[nodiscard]] QObject *dialog(const char *name) const { return m_ui->object(QString::fromLatin1(name)); }
    [[nodiscard]] bool isOpen(const char *name) const { return dialog(name)->property("visible").toBool(); }
    QString onAir();

    std::unique_ptr<Interface> m_ui;
};

void tst_WindowDialogs::init()
{
    QCoreApplication::setApplicationVersion(u"7.8.9"_s);
    m_ui = std::make_unique<Interface>();
}

void tst_WindowDialogs::cleanup()
{
    QCOMPARE(m_ui->warnings(), QStringList());
    m_ui.reset();
}

QString tst_WindowDialogs::onAir()
{
    QString id = m_ui->addFake(u"progress"_s);
    m_ui->engine().startPipeline(id);
    [&] { QTRY_COMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Running); }();
    return id;
}

void tst_WindowDialogs::openStopAll()
{
    QTRY_VERIFY(m_ui->item(u"stopAllButton"_s)->isVisible() && m_ui->item(u"stopAllButton"_s)->width() > 0);
    m_ui->click(u"stopAllButton"_s);
    QTRY_VERIFY(dialog("stopAllDialog")->property("opened").toBool());
}

void tst_WindowDialogs::openAbout()
{
    m_ui->click(u"aboutButton"_s);
    QTRY_VERIFY(dialog("aboutDialog")->property("opened").toBool());
}

// --- Both

void tst_WindowDialogs::modalAndCentred_data()
{
    QTest::addColumn<QString>("opener");
    QTest::addColumn<QString>("title");

    QTest::newRow("stopAllDialog") << u"stopAllButton"_s << u"Parar TODAS as streams?"_s;
    QTest::newRow("aboutDialog") << u"aboutButton"_s << u"Sobre"_s;
}

void tst_WindowDialogs::modalAndCentred()
{
    QFETCH(const QString, opener);
    QFETCH(const QString, title);
    onAir();
    QVERIFY(!dialog(QTest::currentDataTag()));
    QTRY_VERIFY(m_ui->item(opener)->isVisible() && m_ui->item(opener)->width() > 0);
    m_ui->click(opener);
    QObject *opened = dialog(QTest::currentDataTag());
    QVERIFY(opened);
    QTRY_VERIFY(opened->property("opened").toBool());
    QCOMPARE(lookText(opened, u"modal"_s), u"true"_s);
    QCOMPARE(lookText(opened, u"title"_s), title);
    QCOMPARE(lookText(opened, u"Material.background"_s), u"#242428"_s);

    const auto *overlay = opened->property("parent").value<QQuickItem *>();
    const QPointF centre(opened->property("x").toReal() + opened->property("width").toReal() / 2,
                         opened->property("y").toReal() + opened->property("height").toReal() / 2);
    const QPointF onWindow = overlay->mapToScene(centre);
    const QPointF expected(m_ui->window().width() / 2.0, m_ui->window().height() / 2.0);
    QVERIFY2((onWindow - expected).manhattanLength() <= 2, qPrintable(QDebug::toString(onWindow)));
    QCOMPARE(m_ui->window().size(), QSize(1280, 820));

    // Nothing behind it can be pressed.
    m_ui->click(u"addButton"_s);
    QCOMPARE(m_ui->engine().pipelines().size(), 1);
}

// --- Stop all

void tst_WindowDialogs::stopAllCounts_data()
{
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("idle");
    QTest::addColumn<QString>("count");

    QTest::newRow("one of one") << 1 << 0 << u"1"_s;
    QTest::newRow("two of three") << 2 << 1 << u"2"_s;
    QTest::newRow("three of five") << 3 << 2 << u"3"_s;
}

void tst_WindowDialogs::stopAllCounts()
{
    QFETCH(const int, active);
    QFETCH(const int, idle);
    QFETCH(const QString, count);
    for (int i = 0; i < idle; ++i)
        m_ui->engine().addPipeline({});
    for (int i = 0; i < active; ++i)
        onAir();
    openStopAll();
    QCOMPARE(lookText(m_ui->item(u"stopAllText"_s), u"text"_s).section(u' ', 0, 0), count);
}

void tst_WindowDialogs::stopAllCountFollows()
{
    const QString first = onAir();
    onAir();
    openStopAll();
    m_ui->engine().stopPipeline(first);
    QCOMPARE(lookText(m_ui->item(u"stopAllText"_s), u"text"_s),
             u"1 stream(s) ativa(s) serão interrompidas.\nEsta ação não pode ser desfeita."_s);
}

void tst_WindowDialogs::accept()
{
    const QStringList ids{onAir(), onAir()};
    openStopAll();
    m_ui->click(u"stopAllAccept"_s);
    for (const QString &id : ids)
        QCOMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Stopped);
    QTRY_VERIFY(!isOpen("stopAllDialog"));
    QVERIFY(!m_ui->item(u"stopAllButton"_s)->isVisible());
}

void tst_WindowDialogs::reject_data()
{
    QTest::addColumn<bool>("byKey");

    QTest::newRow("by the button") << false;
    QTest::newRow("by Escape") << true;
}

void tst_WindowDialogs::reject()
{
    QFETCH(const bool, byKey);
    const QString id = onAir();
    openStopAll();
    if (byKey)
        m_ui->press(Qt::Key_Escape);
    else
        m_ui->click(u"stopAllCancel"_s);
    QTRY_VERIFY(!isOpen("stopAllDialog"));
    QCOMPARE(m_ui->pipeline(id)->state(), Pipeline::State::Running);
    QVERIFY(m_ui->item(u"stopAllButton"_s)->isVisible());
}

// --- About

void tst_WindowDialogs::aboutCloses()
{
    openAbout();
    QQuickItem *close = nullptr;
    const auto *footer = dialog("aboutDialog")->property("footer").value<QQuickItem *>();
    QMetaObject::invokeMethod(const_cast<QQuickItem *>(footer), "itemAt", Q_RETURN_ARG(QQuickItem *, close),
                              Q_ARG(int, 0));
    QCOMPARE(footer->property("count").toInt(), 1);
    QCOMPARE(lookText(close, u"text"_s), u"Fechar"_s);
    m_ui->click(close);
    QTRY_VERIFY(!isOpen("aboutDialog"));
}

void tst_WindowDialogs::clickArt(int times)
{
    for (int i = 0; i < times; ++i)
        m_ui->click(u"lorvenneArt"_s);
}

void tst_WindowDialogs::easterLine_data()
{
    QTest::addColumn<QList<int>>("clicks"); // in each opening of the dialog
    QTest::addColumn<bool>("shown");
    QTest::addColumn<int>("counter");

    QTest::newRow("four clicks") << QList{4} << false << 4;
    QTest::newRow("five clicks") << QList{5} << true << 0;
    QTest::newRow("seven clicks") << QList{7} << true << 2;
    QTest::newRow("twice three clicks") << QList{3, 3} << true << 1;
    QTest::newRow("two and two") << QList{2, 2} << false << 4;
    QTest::newRow("one at a time") << QList{1, 1, 1, 1, 1} << true << 0;
}

void tst_WindowDialogs::easterLine()
{
    QFETCH(const QList<int>, clicks);
    for (qsizetype i = 0; i < clicks.size(); ++i) {
        openAbout();
        m_ui->object(u"easterTimer"_s)->setProperty("interval", 600000);
        clickArt(clicks.at(i));
        if (i + 1 < clicks.size()) {
            m_ui->press(Qt::Key_Escape);
            QTRY_VERIFY(!isOpen("aboutDialog"));
        }
    }
    QTEST(m_ui->item(u"easterLabel"_s)->isVisible(), "shown");
    QTEST(m_ui->object(u"easterTimer"_s)->property("running").toBool(), "shown");
    QTEST(dialog("aboutDialog")->property("easterClicks").toInt(), "counter");
}

void tst_WindowDialogs::easterLineTimesOut()
{
    openAbout();
    QCOMPARE(outline(m_ui->item(u"aboutColumn"_s)),
             u"aboutTitle lorvenneArt aboutText aboutMaker aboutRule ndiAttribution ndiLink"_s);
    clickArt(5);
    QVERIFY(m_ui->item(u"easterLabel"_s)->isVisible());
    QCOMPARE(outline(m_ui->item(u"aboutColumn"_s)),
             u"aboutTitle lorvenneArt easterLabel aboutText aboutMaker aboutRule ndiAttribution ndiLink"_s);
    QTRY_VERIFY_WITH_TIMEOUT(!m_ui->item(u"easterLabel"_s)->isVisible(), 20000);
    QVERIFY(!m_ui->object(u"easterTimer"_s)->property("running").toBool());
}

void tst_WindowDialogs::linkOpensInTheBrowser()
{
    Browser browser;
    QDesktopServices::setUrlHandler(u"https"_s, &browser, "open");
    openAbout();
    const QQuickItem *link = m_ui->item(u"ndiLink"_s);
    QTRY_VERIFY(link->width() > 0);
    QCOMPARE(m_ui->window().cursor().shape(), Qt::ArrowCursor);
    const QPoint centre = link->mapToScene(QPointF(link->width() / 2, link->height() / 2)).toPoint();
    QTest::mouseMove(&m_ui->window(), centre + QPoint(1, 1));
    QTest::mouseMove(&m_ui->window(), centre);
    QTRY_COMPARE(m_ui->window().cursor().shape(), Qt::PointingHandCursor);
    m_ui->click(u"ndiLink"_s);
    QDesktopServices::unsetUrlHandler(u"https"_s);
    QCOMPARE(browser.opened, QStringList{u"https://ndi.video"_s});
    QVERIFY(isOpen("aboutDialog"));
}

QTEST_MAIN(tst_WindowDialogs)
#include "tst_WindowDialogs.moc"
