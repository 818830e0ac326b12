#include "tests/support/Runner.h"
#include "tests/ui/Interface.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

class tst_WindowShell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void plusAddsAndSelects();
};

void tst_WindowShell::plusAddsAndSelects()
{
    Interface ui;
    QVERIFY(ui.item(u"emptyState"_s)->isVisible());

    const QString id = ui.addPipeline();
    QCOMPARE(id.size(), 8);
    QCOMPARE(ui.engine().pipelines().size(), 1);
    QVERIFY(!ui.item(u"emptyState"_s)->isVisible());
    QTRY_COMPARE(ui.item(u"nameLabel"_s, ui.row(0))->property("text").toString(), u"Stream 1"_s);

    ui.openTab(0);
    ui.choose(u"srcKind"_s, 2);
    QCOMPARE(ui.config(id).source.kind, int(SourceKind::Srt));
    ui.replaceText(u"srcUriField"_s, u"srt://host:9000"_s);
    ui.press(Qt::Key_Return);
    QCOMPARE(ui.config(id).source.uri, u"srt://host:9000"_s);
    QCOMPARE(ui.warnings(), QStringList());
}

CORVANE_TEST(tst_WindowShell, corvane::test::WindowApplication)
#include "tst_WindowShell.moc"
