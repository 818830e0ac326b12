#include "tools/guardian/Front.h"
#include "tools/guardian/PrintableText.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace corvane::guardian::front {

namespace {

void print(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

void prepare() {}

void help(const QString &text)
{
    print(stdout, text);
}

void line(const QString &text)
{
    print(stderr, "guardian: "_L1 + text + u'\n');
}

void refusal(ExitCode /*code*/, const QString &why)
{
    print(stderr, "corvane-guardian: "_L1 + printable(why) + u'\n');
}

void alreadyGuarded(const Installation & /*installation*/, const QString &folder)
{
    refusal(WrongPlace, u"another guardian is at work on %1"_s.arg(folder));
}

// The lines have said it.
void end(ExitCode /*code*/, const QString & /*lastLine*/, const QString & /*log*/) {}

} // namespace corvane::guardian::front
