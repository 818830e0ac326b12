#include "tests/air/Transmission.h"

#include "tests/air/Lists.h"
#include "tests/support/Files.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QProcessEnvironment>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::test {

QString step(const QString &name, const QByteArray &value)
{
    return name + u'=' + stepText(value);
}

QString isUp()
{
    return step(u"stderr"_s, "[error] up\n");
}

QByteArray systemWords([[maybe_unused]] int posix, [[maybe_unused]] int windows)
{
#ifdef Q_OS_WIN
    QString words = qt_error_string(windows).trimmed();
    return (words.endsWith(u'.') ? words.chopped(1) : words).toUtf8();
#else
    return qt_error_string(posix).toUtf8();
#endif
}

QByteArray recordingLost(const QString &place, const QByteArray &why)
{
    return "[air] gravação interrompida (" + place.toUtf8() + "): " + why + " — a transmissão continua\n";
}

Transmission::Transmission(QStringList steps)
    : m_steps(std::move(steps))
{
    m_call.putEncoder(u"b"_s);
}

QString Transmission::recordTo(const QString &directory)
{
    QString native = QDir::toNativeSeparators(directory);
    writeFile(m_call.filePath(u"a/recordings"_s), native.toUtf8() + '\n');
    return native;
}

void Transmission::setVariable(const QString &name, const QString &value)
{
    QProcessEnvironment environment = process().processEnvironment();
    environment.insert(name, value);
    process().setProcessEnvironment(environment);
}

void Transmission::preload(const QString &library)
{
    setVariable(u"LD_PRELOAD"_s, library);
    setVariable(u"ASAN_OPTIONS"_s, u"verify_asan_link_order=0"_s);
}

void Transmission::start(const QStringList &input)
{
    m_call.start(list(input));
}

void Transmission::startBehind(const QString &command)
{
    const QString script =
        u"exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; "_s + command + uR"( && exec "$0" "$@")"_s;
    process().start(u"/bin/sh"_s, QStringList{u"-c"_s, script, m_call.at(u"a"_s)} + list());
}

QStringList Transmission::list(const QStringList &input) const
{
    const QString target = u"rtmp://127.0.0.1:1/live/fake:%1,rest="_s.arg(m_steps.join(u','));
    QStringList list = liveList({u"-f"_s, u"flv"_s, target});
    return list.first(4) + input + list.sliced(4);
}

int Transmission::exitCode()
{
    return process().waitForFinished(20000) ? process().exitCode() : -1;
}

int Transmission::run()
{
    start();
    return exitCode();
}

QByteArray Transmission::said()
{
    return m_said += process().readAllStandardError();
}

bool Transmission::waitFor(const QByteArray &text)
{
    return waitUntil([&] { return said().contains(text); });
}

} // namespace corvane::test
