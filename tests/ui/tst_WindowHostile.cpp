#include "tests/ui/LookTable.h"

#include <QQuickItem>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Text from outside that would like to be more than text. What shows it has to show it as it stands.
class tst_WindowHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shownLiterally_data();
    void shownLiterally();

private:
    static void renderOnce(Interface &ui);
};

namespace {

const auto marker = "HOSTIL"_L1;

/// Every text item on the window, popups included, whose text holds the marker.
void findHostile(QQuickItem *below, QList<QQuickItem *> &found)
{
    const bool isText = below->inherits("QQuickText") || below->inherits("QQuickTextEdit") ||
                        below->inherits("QQuickTextInput");
    if (isText && below->property("text").toString().contains(marker))
        found << below;
    const QList<QQuickItem *> children = below->childItems();
    for (QQuickItem *child : children)
        findHostile(child, found);
}

} // namespace

void tst_WindowHostile::renderOnce(Interface &ui)
{
    QSignalSpy frames(&ui.window(), &QQuickWindow::afterRendering);
    ui.window().update();
    QTRY_VERIFY(!frames.isEmpty());
}

void tst_WindowHostile::shownLiterally_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("bold") << u"<b>HOSTIL</b>"_s;
    QTest::newRow("picture from a file") << u"HOSTIL<img src=\"file:///corvane-no-such-picture.png\">"_s;
    QTest::newRow("picture from the net") << u"HOSTIL<img src=\"http://127.0.0.1:%1/x.png\"/>"_s;
    QTest::newRow("picture in a whole document")
        << u"<html><body><p>HOSTIL</p><img src='http://127.0.0.1:%1/x.png'></body></html>"_s;
    QTest::newRow("link") << u"<a href=\"http://127.0.0.1:%1/\">HOSTIL</a>"_s;
    QTest::newRow("entities") << u"HOSTIL &lt;b&gt; &amp;"_s;
    QTest::newRow("ampersands, which mark a key in a button's own label") << u"HOSTIL 0.2&beta&&3"_s;
    QTest::newRow("markdown") << u"# **HOSTIL** ![x](http://127.0.0.1:%1/x.png)"_s;
    QTest::newRow("emoji") << u"HOSTIL 📡👩‍👩‍👧‍👦🇵🇹"_s;
    QTest::newRow("right to left") << u"HOSTIL שלום \u202Eevil\u202C مرحبا"_s;
    QTest::newRow("combining marks") << u"HOSTIL Z̸̡͓̫͔a̷l̵g̶o̷"_s;
    QTest::newRow("ten thousand characters") << "HOSTIL"_L1 + QString(10000, u'W');
}

void tst_WindowHostile::shownLiterally()
{
    QFETCH(QString, text);
    QTcpServer net;
    QVERIFY(net.listen(QHostAddress::LocalHost));
    text.replace("%1"_L1, QString::number(net.serverPort()));

    Interface ui;
    const QString id = ui.engine().addPipeline(text);
    ui.engine().addRtmpOutput(id, text);
    ui.engine().addSrtOutput(id, text, 120, text);
    ui.engine().addSrtlaOutput(id, text, 5000);
    ui.engine().appendLog(text);
    ui.updater().offer(text);
    QTRY_VERIFY(ui.row(0));
    ui.click(ui.row(0));
    QCOMPARE(ui.selectedId(), id);

    QHash<QString, int> seen; // where it stands, and how often
    for (const int tab : {0, 1, 2, 3}) {
        ui.openTab(tab);
        renderOnce(ui);
        QList<QQuickItem *> found;
        findHostile(ui.window().contentItem()->parentItem() ? ui.window().contentItem()->parentItem()
                                                            : ui.window().contentItem(),
                    found);
        for (QQuickItem *item : found) {
            ++seen[item->objectName()];
            if (item->inherits("QQuickTextInput"))
                continue; // knows no other form than plain
            QVERIFY2(lookText(item, u"textFormat"_s) == "PlainText"_L1, qPrintable(item->objectName()));
        }
    }
    QStringList places = seen.keys();
    places.sort();
    QCOMPARE(places,
             QStringList({u"logArea"_s, u"nameLabel"_s, u"outputUrl"_s, u"previewText"_s, u"updateText"_s}));

    QCOMPARE(lookText(ui.item(u"nameLabel"_s), u"text"_s), text);
    QCOMPARE(lookText(find(ui, u"outputRow[0]/outputUrl"_s), u"text"_s), text);
    QCOMPARE(lookText(find(ui, u"outputRow[1]/outputUrl"_s), u"text"_s), text);
    QCOMPARE(lookText(find(ui, u"outputRow[2]/outputUrl"_s), u"text"_s), text + ":5000"_L1);
    ui.awaitRest();
    QCOMPARE(lookText(ui.item(u"logArea"_s), u"text"_s), ui.engine().log());
    const QString log = ui.engine().log();
    QVERIFY2(log.endsWith(text + u'\n') || log.endsWith(text), qPrintable(log.right(300)));
    QVERIFY(lookText(ui.item(u"previewText"_s), u"text"_s).contains(text));
    QCOMPARE(lookText(ui.item(u"updateText"_s), u"text"_s), "Atualizar "_L1 + text);

    // The rename field shows the same text and gives it back unchanged.
    ui.doubleClick(ui.item(u"nameLabel"_s));
    QTRY_VERIFY(ui.item(u"renameField"_s));
    QCOMPARE(lookText(ui.item(u"renameField"_s), u"text"_s), text);
    ui.press(Qt::Key_Return);
    QCOMPARE(ui.config(id).name, text);

    renderOnce(ui);
    QVERIFY2(!net.hasPendingConnections(), "a picture was asked for");
    QCOMPARE(ui.warnings(), QStringList());
}

QTEST_MAIN(tst_WindowHostile)
#include "tst_WindowHostile.moc"
