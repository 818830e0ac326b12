#pragma once

#include <QObject>
#include <QStringList>
#include <QUrl>

namespace corvane::test {

/// Stands in for the system's browser: a handler of QDesktopServices.
class Browser : public QObject
{
    Q_OBJECT

public:
    QStringList opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened << url.toString(); }
};

} // namespace corvane::test
