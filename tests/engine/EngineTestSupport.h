#pragma once

#include "engine/Engine.h"
#include "tests/support/ToolPath.h"

#include <QMetaObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace corvane::test {

/// An Engine whose ffmpeg is fake_ffmpeg, on a machine with no other tool.
class EngineBench
{
public:
    /// `protocols`: the list that ffmpeg prints; with "srt\n" it sends SRT by itself.
    explicit EngineBench(const QByteArray &protocols = {});

    Engine *operator->() { return &engine; }

    /// Calls an operation as QML does, through the meta-object; false if none has that signature.
    template <typename... Args>
    bool call(const char *operation, const Args &...args)
    {
        return QMetaObject::invokeMethod(&engine, operation, Qt::DirectConnection, argument(args)...);
    }

    /// The same for an operation that returns a value.
    template <typename Answer, typename... Args>
    Answer ask(const char *operation, const Args &...args)
    {
        Answer answer{};
        if (!QMetaObject::invokeMethod(&engine, operation, Qt::DirectConnection,
                                       QReturnArgument<Answer>(typeName<Answer>(), answer),
                                       argument(args)...))
            qWarning("no operation %s of that form", operation);
        return answer;
    }

    /// Adds a pipeline with one RTMP output whose URL is "fake:" and `steps`; returns its id.
    QString addFake(const QString &name, const QString &steps);

    /// The object behind a row of the registry. With objects of the same id in disposal, the newest.
    [[nodiscard]] Pipeline *pipeline(const QString &id) const;
    [[nodiscard]] const PipelineConfig &config(const QString &id) const { return pipeline(id)->config(); }
    [[nodiscard]] qsizetype livingPipelines() const { return engine.findChildren<Pipeline *>().size(); }

    /// Value of `key` in each row of the pipelines view.
    [[nodiscard]] QStringList column(const QString &key) const;

    /// The log, line by line, without the time stamps. A line without a stamp becomes "(no stamp) …".
    [[nodiscard]] QStringList logLines() const;
    [[nodiscard]] qsizetype logCount(const QString &line) const { return logLines().count(line); }
    [[nodiscard]] bool logHas(const QString &part) const; ///< part of some line

private:
    template <typename T>
    static const char *typeName()
    {
        return QMetaType::fromType<T>().name();
    }
    template <typename T>
    static QArgument<T> argument(const T &value)
    {
        return QArgument<T>(typeName<T>(), value);
    }

    ToolPath m_path;
    QString m_ffmpeg;

public:
    Engine engine;
};

} // namespace corvane::test
