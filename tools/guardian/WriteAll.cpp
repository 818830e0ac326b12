#include "tools/guardian/WriteAll.h"

#include <QFile>

namespace corvane::guardian {

QString writeAll(QFile &file, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const qint64 written = file.write(bytes.data(), bytes.size());
        if (written <= 0)
            return file.errorString();
        bytes = bytes.sliced(written);
    }
    return {};
}

} // namespace corvane::guardian
