#pragma once

#include <QStringList>

#include <string>
#include <vector>

namespace corvane::test {

/// Arguments as the companion has them.
[[nodiscard]] inline std::vector<std::string> plain(const QStringList &arguments)
{
    std::vector<std::string> result;
    for (const QString &argument : arguments)
        result.push_back(argument.toStdString());
    return result;
}

/// A list of CORVANE's form with an SRT source and this output.
[[nodiscard]] inline QStringList liveList(const QStringList &output)
{
    using namespace Qt::StringLiterals;
    return QStringList{u"-hide_banner"_s, u"-loglevel"_s, u"warning"_s,  u"-stats"_s, u"-fflags"_s,
                       u"nobuffer"_s,     u"-i"_s,        u"srt://in"_s, u"-c:v"_s,   u"libx264"_s} +
           output;
}

} // namespace corvane::test
