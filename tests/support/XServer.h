#pragma once

#include <QProcess>
#include <QString>

namespace corvane::test {

/// A private X server (Xvfb) without a window manager, for the life of this object. The server picks a
/// display number that is free, so several may run at once. Every query opens a connection of its own, so
/// none of them disturbs the display of the test itself.
class XServer
{
public:
    XServer();
    ~XServer();
    Q_DISABLE_COPY_MOVE(XServer)

    /// Empty if the server runs, else the name of what isn't installed. An installed server that doesn't
    /// start is fatal.
    [[nodiscard]] QString problem() const { return m_problem; }

    /// Value for DISPLAY, as ":7".
    [[nodiscard]] QString display() const { return m_display; }

    /// True if a window of exactly this title is on the screen.
    [[nodiscard]] bool showsWindow(const QString &title) const;

    /// Asks the window of exactly this title to close, as the button of its frame does; false if none is
    /// shown that takes such a request. Returns before the window has acted on it.
    [[nodiscard]] bool closeWindow(const QString &title) const;

private:
    QProcess m_server;
    QString m_display;
    QString m_problem;
};

} // namespace corvane::test
