#pragma once

#include <QJsonObject>
#include <QList>
#include <QProcessEnvironment>
#include <QString>

namespace corvane::test {
class XServer;
}

namespace corvane::bench {

/// What draws the window. Either does so on the processor: OpenGL as on a machine without a graphics card.
enum class Renderer { Software, OpenGl };

/// One run of a program with a window on `display`, in a sandbox of its own, with the plugin that measures it
/// from within (WindowProbe.cpp). `settings` are the plugin's environment variables without
/// "CORVANE_MEASURE". `ffmpeg` is the path of the one that the program finds; empty: a fake. The result is
/// empty if the program left no report; standard error then says why.
[[nodiscard]] QJsonObject measuredRun(const QString &program, const test::XServer &display,
                                      const QList<std::pair<QString, QString>> &settings,
                                      Renderer renderer = Renderer::Software, const QString &ffmpeg = {});

[[nodiscard]] QString emptyWindowProgram(); ///< path of the program that shows an empty window

[[nodiscard]] QList<double> numbers(const QJsonValue &array); ///< of an array
[[nodiscard]] double mean(const QList<double> &values);

} // namespace corvane::bench
