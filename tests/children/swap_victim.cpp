// Does one thing with a DirectorySwap and dies before the step of the given number: at once,
// with nothing written that wasn't yet.
//
//   swap_victim INSTALLATION install|roll-back|recover exchange|rename STEP
//
// Exit code 0: there was no such step, and what was to be done is done; 1: it couldn't be done; 9: dead.

#include "tools/guardian/DirectorySwap.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const Installation installation{arguments.value(1), u"corvane"_s, {}};
    const QString action = arguments.value(2);

    DirectorySwap swap(installation);
    swap.mayExchange = arguments.value(3) == "exchange"_L1;
    swap.beforeStep = [left = arguments.value(4).toInt()](const char * /*step*/) mutable {
        if (left-- == 0)
            std::_Exit(9);
    };
    if (action == "install"_L1)
        return swap.install(readStamp(installation.next())).isEmpty() ? 0 : 1;
    if (action == "roll-back"_L1)
        return swap.rollBack().isEmpty() ? 0 : 1;
    return swap.recover() != DirectorySwap::Found::Broken ? 0 : 1;
}
