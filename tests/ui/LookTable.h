#pragma once

#include "tests/ui/Interface.h"

#include <QObject>
#include <QString>

#include <initializer_list>
#include <memory>

namespace corvane::test {

/// Expectation of the live window: a property of an item and its value, as text.
struct Look
{
    const char *item;     ///< see find()
    const char *property; ///< as QML writes it: "font.pixelSize", "Material.foreground", "anchors.leftMargin"
    const char *expected; ///< see lookText()
};

/// The object at the end of a path of names, such as "pipelineList/plDel[1]/statusDot". An index counts the
/// items of that name below the one before, from 0. "win" is the window; the last name may also be that of
/// an object that is no item, such as a timer or a dialog. Null if there is none.
[[nodiscard]] QObject *find(const Interface &ui, const QString &path);

/// The value of a property as text: colours as "#rrggbb" ("transparent" without any opacity), numbers in
/// their shortest form, enumerators by name, entries of a list between " | ". An unknown property is "?".
[[nodiscard]] QString lookText(QObject *object, const QString &property);

/// The visible children of a layout in their order, by objectName, layouts within it in brackets:
/// "logo gap (dot label) filler".
[[nodiscard]] QString outline(const QQuickItem *layout);

/// Columns and rows of a data-driven test of `looks`; the row's name is item and property.
void addLooks(std::initializer_list<Look> looks);

/// Compares the current row of addLooks() with the live item.
void compareLook(const Interface &ui);

/// Test of the looks of a window that stands as long as the class. No function may cause a QML warning.
class LookTest : public QObject
{
    Q_OBJECT

protected:
    /// Opens the window on a pipeline with an output of each kind, of which the second is switched off.
    void openWithOutputs();

    std::unique_ptr<Interface> m_ui;

private Q_SLOTS:
    void cleanup();
};

} // namespace corvane::test
