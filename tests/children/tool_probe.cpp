// Prints the result of resolveTool() for its argument, byte for byte. Tests copy it to the place that is to
// be the directory of the program.

#include "engine/host/ToolResolver.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QByteArray found = QFile::encodeName(corvane::resolveTool(QCoreApplication::arguments().value(1)));
    std::fwrite(found.constData(), 1, static_cast<std::size_t>(found.size()), stdout);
    return 0;
}
