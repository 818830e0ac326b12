#pragma once

#include "engine/Engine.h"
#include "tests/support/ToolPath.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

namespace corvane::test {

/// One machine on which the program runs again and again: its settings, and one Engine at a time whose ffmpeg
/// is fake_ffmpeg.
class StoreBench
{
public:
    StoreBench();

    /// Begins a run; a run under way ends first.
    Engine &start();
    void end() { m_engine.reset(); }
    Engine *operator->() const { return m_engine.get(); }
    [[nodiscard]] Engine &engine() const { return *m_engine; }

    /// Records of the pipelines, in order of the registry, from its view and its objects. Objects in disposal
    /// are deleted first.
    [[nodiscard]] QList<PipelineConfig> configs() const;
    [[nodiscard]] Pipeline *pipeline(qsizetype row) const; ///< the object behind a row

    /// Value of `key` in each row of the pipelines view.
    [[nodiscard]] QStringList column(const QString &key) const;

    /// The log without stamps and without the line of the metrics endpoint, whose port may be taken.
    [[nodiscard]] QStringList logLines() const;

    /// True if the settings hold nothing.
    [[nodiscard]] bool isEmpty() const;
    void forget() const; ///< empties the settings

    /// Writes values below "pipelines", such as "1/id", as another program would.
    void put(const QVariantMap &values) const;

    /// Text of the value `key` below "pipelines", such as "1/id"; null if there is none.
    [[nodiscard]] QString value(const QString &key) const;

    /// Everything in the settings, as text.
    [[nodiscard]] QByteArray contents() const;

    // For systems that keep settings in files.
    [[nodiscard]] QString filePath() const { return m_file; }
    [[nodiscard]] bool fileExists() const;
    [[nodiscard]] QByteArray bytes() const; ///< of the file; empty if there is none
    void write(const QByteArray &bytes) const;

    /// Text of `key` in the section "pipelines", as it stands behind the equals sign; null if there is none.
    [[nodiscard]] QByteArray stored(const QByteArray &key) const;

private:
    ToolPath m_path;
    QString m_file;
    std::unique_ptr<Engine> m_engine;
};

} // namespace corvane::test
