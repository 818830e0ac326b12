#pragma once

#include "tests/ui/Interface.h"

#include <QObject>
#include <QSignalSpy>

#include <memory>

namespace corvane::test {

/// The fields of a record, one "name value" each, in a fixed order; outputs as "outputs[0].url …".
[[nodiscard]] QStringList fieldsOf(const PipelineConfig &config);

/// Changes that the window makes to one record from construction on.
class RecordWatch
{
public:
    RecordWatch(Interface &ui, QString id);

    /// Fields whose value isn't that of the beginning, as fieldsOf() writes them, and "- …" for those
    /// removed.
    [[nodiscard]] QStringList changes() const;
    /// Number of edits that reached the Engine, those without effect included. For stopped pipelines.
    [[nodiscard]] qsizetype edits() const { return m_edits.count(); }
    void restart(); ///< makes the record as it is now the beginning

private:
    Interface &m_ui;
    QString m_id;
    QStringList m_before;
    QSignalSpy m_edits;
};

/// The window with the editor open, and the operations on the editor's controls.
class EditorBench : public Interface
{
public:
    using Interface::Interface;

    /// Adds and selects a pipeline in whose record no field has the value that the editor starts with.
    QString addUnusual();
    void removeAll();               ///< through the Engine; the selection stays as it is
    void select(const QString &id); ///< clicks its row in the list

    /// A property of the item called `name`; grouped ones as "up.pressed", attached ones as
    /// "Accessible.name".
    [[nodiscard]] QVariant value(const QString &name, const QString &property) const;
    static QVariant valueOf(QObject *object, const QString &property);
    [[nodiscard]] QString text(const QString &name) const
    {
        return value(name, QStringLiteral("text")).toString();
    }
    [[nodiscard]] bool isShown(const QString &name) const; ///< it and all above it are visible
    /// The style's mark of a text field in focus: a thicker line or, in later versions, a frame.
    [[nodiscard]] bool showsFocus(const QString &textField) const;

    void step(const QString &spinBox, bool up); ///< clicks one of its two buttons
    void hover(QQuickItem *item);
    void settle(); ///< waits for the next frame, by which every layout has been done
    void paste(const QString &text);

    /// Name of the item that has the focus; a list's, if its current row has it.
    [[nodiscard]] QString focused() const;
    void focusByTab(const QString &name);                      ///< presses Tab until the item has the focus
    [[nodiscard]] static QString spokenName(QQuickItem *item); ///< name for a screen reader
};

/// Test of a page of the editor, in a window that stands as long as the class: each function finds the page
/// open on the only pipeline, which addUnusual() made, and may cause no QML warning.
class EditorPageTest : public QObject
{
    Q_OBJECT

protected:
    /// `tab`: the page, as Interface::openTab() counts.
    explicit EditorPageTest(int tab)
        : m_tab(tab)
    {
    }

    std::unique_ptr<EditorBench> m_ui;
    QString m_id; ///< of that pipeline

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

private:
    const int m_tab;
};

} // namespace corvane::test
