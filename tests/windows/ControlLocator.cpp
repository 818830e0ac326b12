// A plugin that the program loads into itself when QT_QPA_GENERIC_PLUGINS names it: several times a second it
// writes to the file CORVANE_LOCATE_REPORT which controls are in view, for one who operates the window from
// outside and has no accessibility bus to ask: a JSON object with the report's "number", the backend of "tls"
// (empty without one) and the "controls", an array of objects with "role", "name", "text" and the place on
// the screen, "x", "y", "width", "height" in device pixels.

#include <QAccessible>
#include <QGenericPlugin>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSslSocket>
#include <QTimer>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace {

constexpr int intervalMs = 150;

constexpr struct
{
    QAccessible::Role role;
    const char *name;
} roles[] = {
    {QAccessible::Button, "push button"}, {QAccessible::CheckBox, "check box"},
    {QAccessible::ComboBox, "combo box"}, {QAccessible::EditableText, "text"},
    {QAccessible::Dialog, "dialog"},      {QAccessible::ListItem, "list item"},
    {QAccessible::PageTab, "page tab"},   {QAccessible::SpinBox, "spin button"},
    {QAccessible::StaticText, "label"},   {QAccessible::Window, "frame"},
};

QString roleName(QAccessible::Role role)
{
    for (const auto &[known, name] : roles) {
        if (known == role)
            return QString::fromLatin1(name);
    }
    return u"other"_s;
}

void addVisible(QAccessibleInterface *control, QJsonArray &found)
{
    if (!control || !control->isValid() || control->state().invisible)
        return;
    const QString name = control->text(QAccessible::Name);
    if (!name.isEmpty()) {
        const QRect place = control->rect();
        QString text = control->text(QAccessible::Value);
        if (QAccessibleTextInterface *lines = control->textInterface())
            text = lines->text(0, lines->characterCount());
        else if (QAccessibleValueInterface *value = control->valueInterface())
            text = value->currentValue().toString();
        found.append(QJsonObject{{u"role"_s, roleName(control->role())},
                                 {u"name"_s, name},
                                 {u"text"_s, text},
                                 {u"x"_s, place.x()},
                                 {u"y"_s, place.y()},
                                 {u"width"_s, place.width()},
                                 {u"height"_s, place.height()}});
    }
    for (int i = 0; i < control->childCount(); ++i)
        addVisible(control->child(i), found);
}

void report()
{
    static int number = 0;
    QJsonArray found;
    const QWindowList windows = QGuiApplication::topLevelWindows();
    for (QWindow *window : windows) {
        if (window->isVisible())
            addVisible(QAccessible::queryAccessibleInterface(window), found);
    }
    QSaveFile file(qEnvironmentVariable("CORVANE_LOCATE_REPORT"));
    if (file.open(QIODevice::WriteOnly)) {
        file.write(
            QJsonDocument({{u"number"_s, ++number},
                           {u"tls"_s, QSslSocket::supportsSsl() ? QSslSocket::activeBackend() : QString()},
                           {u"controls"_s, found}})
                .toJson(QJsonDocument::Compact));
        file.commit();
    }
}

} // namespace

class ControlLocator : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "ControlLocator.json")

public:
    QObject *create(const QString & /*name*/, const QString & /*spec*/) override
    {
        auto *timer = new QTimer(this);
        connect(timer, &QTimer::timeout, &report);
        timer->start(intervalMs);
        return timer;
    }
};

#include "ControlLocator.moc"
