// A pipe in whose place somebody puts a link at the moment when it has just been made.

#include "ndi/FramePipe.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

QByteArray swappedFor; ///< the pipe to which a link is put in the new one's place; empty: none

int madePipe(const char *path, mode_t mode)
{
    static const auto make = reinterpret_cast<decltype(&mkfifo)>(dlsym(RTLD_NEXT, "mkfifo"));
    return make(path, mode);
}

} // namespace

// Replacement: a program's symbols come before those of the system's library.
extern "C" int mkfifo(const char *path, mode_t mode) noexcept
{
    const int made = madePipe(path, mode);
    if (made == 0 && !swappedFor.isEmpty()) {
        unlink(path);
        if (symlink(swappedFor.constData(), path) != 0)
            qFatal("no link");
    }
    return made;
}

class tst_FramePipeSwapped : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void followsNoLink();
};

void tst_FramePipeSwapped::followsNoLink()
{
    const QTemporaryDir dir;
    const QByteArray another = QFile::encodeName(dir.filePath(u"another"_s));
    QCOMPARE(madePipe(another.constData(), 0600), 0);
    swappedFor = another;

    FramePipe pipe;
    QCOMPARE(pipe.create(dir.filePath(u"pipe"_s)), quint32(ELOOP));
    QVERIFY(!pipe.isOpen());
    QVERIFY(!pipe.write("frame"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
             QStringList{u"another"_s});

    swappedFor.clear();
    QCOMPARE(pipe.create(dir.filePath(u"pipe"_s)), 0U);
}

CORVANE_TEST(tst_FramePipeSwapped, QCoreApplication)
#include "tst_FramePipeSwapped.moc"
