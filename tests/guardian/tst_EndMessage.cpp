#include "tests/support/Runner.h"
#include "tools/guardian/EndMessage.h"

#include <QDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;

/// What the message box says when a guardian without a console ends.
class tst_EndMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void headlines_data();
    void headlines();
    void reasonAndLog();
};

void tst_EndMessage::headlines_data()
{
    QTest::addColumn<ExitCode>("code");
    QTest::addColumn<QString>("text");
    QTest::newRow("in order: nothing to say") << EndedCleanly << QString();
    QTest::newRow("given up") << GaveUp << u"O CORVANE não pôde ser mantido aberto."_s;
    QTest::newRow("wrong usage") << WrongUsage << u"O CORVANE foi aberto com opções que não estão certas."_s;
    QTest::newRow("wrong place") << WrongPlace << u"O CORVANE não pode ser aberto a partir daqui."_s;
    QTest::newRow("nothing to attach to") << NothingToAttach << u"O CORVANE não está aberto."_s;
}

void tst_EndMessage::headlines()
{
    QFETCH(const ExitCode, code);
    QTEST(endMessage(code, {}, {}), "text");
}

void tst_EndMessage::reasonAndLog()
{
    QCOMPARE(endMessage(GaveUp, u"it crashed"_s, u"/x/guardian.log"_s),
             u"O CORVANE não pôde ser mantido aberto.\n\nMotivo, nas palavras do guardião: it crashed\n\n"
             "Registro: %1"_s.arg(QDir::toNativeSeparators(u"/x/guardian.log"_s)));
    QCOMPARE(endMessage(EndedCleanly, u"the program ended in order"_s, u"/x/guardian.log"_s), QString());
}

CORVANE_TEST(tst_EndMessage, QCoreApplication)
#include "tst_EndMessage.moc"
