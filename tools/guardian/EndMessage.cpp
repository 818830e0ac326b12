#include "tools/guardian/EndMessage.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr struct
{
    ExitCode code;
    const char16_t *headline;
} headlines[] = {
    {GaveUp, u"O CORVANE não pôde ser mantido aberto."},
    {WrongUsage, u"O CORVANE foi aberto com opções que não estão certas."},
    {WrongPlace, u"O CORVANE não pode ser aberto a partir daqui."},
    {NothingToAttach, u"O CORVANE não está aberto."},
};

} // namespace

QString endMessage(ExitCode code, const QString &reason, const QString &log)
{
    QStringList parts;
    for (const auto &[known, headline] : headlines) {
        if (known == code)
            parts << QString::fromUtf16(headline);
    }
    if (parts.isEmpty())
        return {};
    if (!reason.isEmpty())
        parts << u"Motivo, nas palavras do guardião: %1"_s.arg(reason);
    if (!log.isEmpty())
        parts << u"Registro: %1"_s.arg(QDir::toNativeSeparators(log));
    return parts.join("\n\n"_L1);
}

} // namespace corvane::guardian
