#include "tools/guardian/PrintableText.h"

namespace corvane::guardian {

namespace {

bool isPrintable(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

} // namespace

QString printable(const QString &text)
{
    QString shown;
    shown.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool isPair = text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        const char32_t c = isPair ? QChar::surrogateToUcs4(text[i], text[i + 1]) : text[i].unicode();
        if (!isPrintable(c))
            shown += u'?';
        else
            shown += QStringView(text).sliced(i, isPair ? 2 : 1);
        i += isPair ? 1 : 0;
    }
    return shown;
}

} // namespace corvane::guardian
