#include "tests/ui/LookTable.h"

#include <QCoreApplication>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Both dialogs as they stand on the screen, with one pipeline on air.
class tst_WindowLookDialogs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup() { QCOMPARE(m_ui->warnings(), QStringList()); }

    void stopAllLook_data();
    void stopAllLook() { compareLook(*m_ui); }
    void stopAllOrder();
    void aboutLook_data();
    void aboutLook() { compareLook(*m_ui); }

private:
    std::unique_ptr<Interface> m_ui;
};

void tst_WindowLookDialogs::initTestCase()
{
    QCoreApplication::setApplicationVersion(u"7.8.9"_s);
    m_ui = std::make_unique<Interface>();
    m_ui->engine().startPipeline(m_ui->addFake(u"progress"_s));
    for (const QString &name : {u"stopAllDialog"_s, u"aboutDialog"_s}) {
        QMetaObject::invokeMethod(m_ui->item(name + "Loader"_L1), "open");
        QTRY_VERIFY(m_ui->object(name)->property("opened").toBool());
    }
}

void tst_WindowLookDialogs::stopAllLook_data()
{
    addLooks({
        {"stopAllColumn", "spacing", "12"},
        {"stopAllText", "text",
         "1 stream(s) ativa(s) serão interrompidas.\nEsta ação não pode ser desfeita."},
        {"stopAllText", "color", "#e8e8ec"},
        {"stopAllText", "wrapMode", "WrapAtWordBoundaryOrAnywhere"},
        {"stopAllCancel", "text", "Cancelar"},
        {"stopAllCancel", "DialogButtonBox.buttonRole", "RejectRole"},
        {"stopAllAccept", "text", "Parar tudo"},
        {"stopAllAccept", "DialogButtonBox.buttonRole", "AcceptRole"},
        {"stopAllAccept", "Material.foreground", "#ffffff"},
        {"stopAllAccept", "Material.background", "#e05555"},
        {"stopAllDialog", "activeCount", "1"},
    });
}

// Which of the two stands left is the platform's custom.
void tst_WindowLookDialogs::stopAllOrder()
{
    auto *footer = m_ui->object(u"stopAllDialog"_s)->property("footer").value<QQuickItem *>();
    QCOMPARE(footer->property("count").toInt(), 2);
    QVERIFY(m_ui->item(u"stopAllCancel"_s, footer));
    QVERIFY(m_ui->item(u"stopAllAccept"_s, footer));
}

void tst_WindowLookDialogs::aboutLook_data()
{
    addLooks({
        {"aboutDialog", "standardButtons", "Close"},
        {"aboutDialog", "easterClicks", "0"},
        {"aboutColumn", "spacing", "10"},
        {"aboutTitle", "text", "CORVANE 7.8.9"},
        {"aboutTitle", "font.pixelSize", "18"},
        {"aboutTitle", "font.bold", "true"},
        {"aboutTitle", "color", "#4ecdc4"},
        {"lorvenneArt", "text", "░L░o░r░v░e░n░n░e░"},
        {"lorvenneArt", "font.family", "#000000"},
        {"lorvenneArt", "font.pixelSize", "14"},
        {"lorvenneArt", "color", "#4ecdc4"},
        {"easterLabel", "visible", "false"},
        {"easterLabel", "text", "// hack the planet //"},
        {"easterLabel", "font.family", "#000000"},
        {"easterLabel", "font.pixelSize", "12"},
        {"easterLabel", "font.italic", "true"},
        {"easterLabel", "color", "#f0c040"},
        {"easterTimer", "interval", "3000"},
        {"easterTimer", "repeat", "false"},
        {"aboutText", "text", "Encoder/transmissor ao vivo — NDI · SRT bonding · RTMP · Dante · Decklink"},
        {"aboutText", "color", "#e8e8ec"},
        {"aboutText", "wrapMode", "WrapAtWordBoundaryOrAnywhere"},
        {"aboutMaker", "text", "⚡ Made with ☕ by Lorvenne · halvorndev"},
        {"aboutMaker", "color", "#8e8e96"},
        {"aboutRule", "height", "1"},
        {"aboutRule", "color", "#2e2e34"},
        {"aboutRule", "Layout.fillWidth", "true"},
        {"ndiAttribution", "text", "NDI® is a registered trademark of Vizrt NDI AB."},
        {"ndiAttribution", "font.pixelSize", "11"},
        {"ndiAttribution", "color", "#5e5e66"},
        {"ndiLink", "textFormat", "RichText"},
        {"ndiLink", "text", "<a href=\"https://ndi.video\" style=\"color:#4ecdc4\">https://ndi.video</a>"},
        {"ndiLink", "font.pixelSize", "11"},
    });
}

QTEST_MAIN(tst_WindowLookDialogs)
#include "tst_WindowLookDialogs.moc"
