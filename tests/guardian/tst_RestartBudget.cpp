#include "tests/support/Runner.h"
#include "tools/guardian/RestartBudget.h"

#include <QTest>

using namespace corvane;

namespace {

constexpr qint64 giveUp = -1;

} // namespace

/// Pauses and the limit, in time that the rows make up.
class tst_RestartBudget : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pauses_data();
    void pauses();
};

void tst_RestartBudget::pauses_data()
{
    QTest::addColumn<QList<qint64>>("crashesAt");
    QTest::addColumn<QList<qint64>>("pauses");
    constexpr qint64 minute = 60'000;
    QTest::newRow("one crash") << QList<qint64>{0} << QList<qint64>{1000};
    QTest::newRow("at once, again and again")
        << QList<qint64>{0, 1000, 3000, 7000, 15'000, 31'000, 63'000, 123'000, 183'000}
        << QList<qint64>{1000, 2000, 4000, 8000, 16'000, 32'000, 60'000, 60'000, giveUp};
    QTest::newRow("now and then") << QList<qint64>{0, 10 * minute, 20 * minute, 30 * minute}
                                  << QList<qint64>{1000, 1000, 1000, 1000};
    QTest::newRow("just within the window") << QList<qint64>{0, 10 * minute - 1} << QList<qint64>{1000, 2000};
    QTest::newRow("old ones drop out")
        << QList<qint64>{0, 5 * minute, 12 * minute, 16 * minute} << QList<qint64>{1000, 2000, 2000, 2000};
}

void tst_RestartBudget::pauses()
{
    QFETCH(const QList<qint64>, crashesAt);
    constexpr qint64 someDay = 1'790'000'000'000;
    guardian::RestartBudget policy;
    QList<qint64> given;
    for (const qint64 at : crashesAt)
        given << policy.onCrash(someDay + at).value_or(giveUp);
    QTEST(given, "pauses");
}

CORVANE_TEST(tst_RestartBudget, QCoreApplication)
#include "tst_RestartBudget.moc"
