#include "tools/publish/Commands.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    QTextStream output(stdout);
    QTextStream errors(stderr);
    return corvane::publish::run(QCoreApplication::arguments(), output, errors);
}
