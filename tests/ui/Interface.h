#pragma once

#include "engine/Engine.h"
#include "tests/support/ToolPath.h"

#include <QPointer>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStringList>

#include <functional>
#include <memory>

namespace corvane::test {

/// Stands in for the updater: the same properties, signals and slots, and a record of what was called.
class FakeUpdater : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool updateAvailable READ updateAvailable NOTIFY changed)
    Q_PROPERTY(QString latestVersion READ latestVersion NOTIFY changed)
    Q_PROPERTY(QString status READ status NOTIFY changed)

public:
    [[nodiscard]] bool updateAvailable() const { return m_updateAvailable; }
    [[nodiscard]] QString latestVersion() const { return m_latestVersion; }
    [[nodiscard]] QString status() const { return {}; }

    /// Announces a newer version.
    void offer(const QString &version);

    QStringList calls; ///< names of the slots called, in order

public Q_SLOTS:
    void checkNow() { calls << QStringLiteral("checkNow"); }
    void downloadAndStage() { calls << QStringLiteral("downloadAndStage"); }
    bool applyIfSafe()
    {
        calls << QStringLiteral("applyIfSafe");
        return false;
    }

Q_SIGNALS:
    void changed();
    void readyToApply(QString dmgPath, QString version);
    void logLine(QString line);
    void upToDate();
    void checkFailed(QString reason);

private:
    bool m_updateAvailable = false;
    QString m_latestVersion;
};

/// The real window over a real Engine, with a fake ffmpeg as the only tool, operated by mouse and key events.
///
/// Items are found by their objectName in what is on the window, popups included. QML warnings are collected
/// from construction on.
class Interface
{
public:
    explicit Interface(const QByteArray &encoders = "libx264 libx265 h264_nvenc",
                       const QByteArray &protocols = "rtmp\n");
    /// On a machine with the tools that `addTools` puts on the path, and no other.
    explicit Interface(const std::function<void(ToolPath &)> &addTools);
    ~Interface();
    Q_DISABLE_COPY_MOVE(Interface)

    [[nodiscard]] QQuickWindow &window() const { return *m_window; }
    [[nodiscard]] Engine &engine() { return m_engine; }
    [[nodiscard]] FakeUpdater &updater() { return m_updater; }
    [[nodiscard]] QStringList warnings() const; ///< QML warnings so far

    /// The item called `name`, or null. `within` narrows the search to what lies below an item.
    [[nodiscard]] QQuickItem *item(const QString &name, QQuickItem *within = nullptr) const;
    /// Every item called `name`, in the order of the tree.
    [[nodiscard]] QList<QQuickItem *> items(const QString &name, QQuickItem *within = nullptr) const;
    /// An object that is no item (timer, dialog, theme), by its objectName.
    [[nodiscard]] QObject *object(const QString &name, QObject *within = nullptr) const;
    /// The row of the pipeline list with the given index.
    [[nodiscard]] QQuickItem *row(int index) const;

    void click(QQuickItem *item); ///< in the middle of it, scrolled into view first
    void click(const QString &name) { click(item(name)); }
    void doubleClick(QQuickItem *item);
    void type(const QString &text); ///< into the item in focus
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    void replaceText(const QString &fieldName, const QString &text); ///< click, select all, type; focus stays
    void choose(const QString &comboName, int index);                ///< opens the popup and clicks the entry
    void openTab(int index); ///< 0 Fonte, 1 Encoder, 2 Saídas, 3 Preview

    /// Adds a pipeline through the sidebar's "+" and returns its id.
    QString addPipeline();
    /// Waits until the window shows the Engine's state and would show a change at once.
    void awaitRest() const;
    /// Waits until the list shows the Engine's rows, also while log lines keep the window from rest. A
    /// renewal still due would take along what a click on a row begins.
    void awaitRows() const;
    /// Adds a pipeline through the Engine, with one RTMP output whose URL is "fake:" and `steps`; returns its
    /// id.
    QString addFake(const QString &steps, const QString &name = {});
    /// The object behind a row of the registry. With objects of the same id in disposal, the youngest.
    [[nodiscard]] Pipeline *pipeline(const QString &id) const;
    /// The record of the pipeline with this id.
    [[nodiscard]] PipelineConfig config(const QString &id) const;
    [[nodiscard]] QString selectedId() const { return m_window->property("selectedId").toString(); }

private:
    void scrollIntoView(QQuickItem *item) const;
    [[nodiscard]] bool awaitFrame() const;

    ToolPath m_tools;
    Engine m_engine;
    FakeUpdater m_updater;
    QQmlApplicationEngine m_qml;
    QPointer<QQuickWindow> m_window;
};

} // namespace corvane::test
