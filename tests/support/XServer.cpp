#include "tests/support/XServer.h"

#include "tests/support/ChildLife.h"

#include <QList>
#include <QStandardPaths>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

constexpr int startTimeoutMs = 30000;

struct Freed
{
    void operator()(void *reply) const { std::free(reply); } // replies of XCB come from malloc
};
template <typename T>
using Reply = std::unique_ptr<T, Freed>;

/// One connection to the server, for one query.
class Connection
{
public:
    explicit Connection(const QString &display)
        : m_connection(xcb_connect(display.toLatin1().constData(), nullptr))
    {
    }
    ~Connection() { xcb_disconnect(m_connection); }
    Q_DISABLE_COPY_MOVE(Connection)

    /// The window in view with this title, 0 if there is none.
    [[nodiscard]] xcb_window_t find(const QString &title) const
    {
        if (xcb_connection_has_error(m_connection) != 0)
            return 0;
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        QList<xcb_window_t> open{root};
        while (!open.isEmpty()) {
            const xcb_window_t window = open.takeFirst();
            // A window may disappear during the query; its replies are then empty.
            if (window != root && isViewable(window) && titleOf(window) == title)
                return window;
            const Reply<xcb_query_tree_reply_t> tree(
                xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, window), nullptr));
            for (int i = 0; tree && i < xcb_query_tree_children_length(tree.get()); ++i)
                open << xcb_query_tree_children(tree.get())[i];
        }
        return 0;
    }

    /// Sends the request that a window manager sends for the closing button (ICCCM, section 4.2.8.1).
    [[nodiscard]] bool requestClose(xcb_window_t window) const
    {
        const xcb_atom_t protocols = atom("WM_PROTOCOLS");
        const xcb_atom_t deleteWindow = atom("WM_DELETE_WINDOW");
        const QByteArray offered = property(window, protocols, XCB_ATOM_ATOM);
        QList<xcb_atom_t> atoms(offered.size() / qsizetype(sizeof(xcb_atom_t)));
        std::memcpy(atoms.data(), offered.constData(), std::size_t(atoms.size()) * sizeof(xcb_atom_t));
        if (!atoms.contains(deleteWindow))
            return false;

        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = window;
        message.type = protocols;
        message.data.data32[0] = deleteWindow;
        message.data.data32[1] = XCB_CURRENT_TIME;
        const auto sent = xcb_send_event_checked(m_connection, 0, window, XCB_EVENT_MASK_NO_EVENT,
                                                 reinterpret_cast<const char *>(&message));
        return !Reply<xcb_generic_error_t>(xcb_request_check(m_connection, sent));
    }

private:
    [[nodiscard]] xcb_atom_t atom(const char *name) const
    {
        const auto asked = xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(m_connection, asked, nullptr));
        return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }

    [[nodiscard]] QByteArray property(xcb_window_t window, xcb_atom_t name, xcb_atom_t type) const
    {
        const auto asked = xcb_get_property(m_connection, 0, window, name, type, 0, 1024);
        const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(m_connection, asked, nullptr));
        return reply ? QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                                  xcb_get_property_value_length(reply.get()))
                     : QByteArray();
    }

    [[nodiscard]] QString titleOf(xcb_window_t window) const
    {
        return QString::fromUtf8(property(window, atom("_NET_WM_NAME"), atom("UTF8_STRING")));
    }

    [[nodiscard]] bool isViewable(xcb_window_t window) const
    {
        const Reply<xcb_get_window_attributes_reply_t> reply(xcb_get_window_attributes_reply(
            m_connection, xcb_get_window_attributes(m_connection, window), nullptr));
        return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
    }

    xcb_connection_t *m_connection;
};

} // namespace

XServer::XServer()
{
    const QString program = QStandardPaths::findExecutable(u"Xvfb"_s);
    if (program.isEmpty()) {
        m_problem = u"Xvfb is not installed"_s;
        return;
    }
    endWithParent(m_server);
    m_server.setStandardErrorFile(QProcess::nullDevice());
    // The number of the display is written, as one line, when the server takes connections.
    m_server.start(program, {u"-displayfd"_s, u"1"_s, u"-nolisten"_s, u"tcp"_s, u"-noreset"_s, u"-screen"_s,
                             u"0"_s, u"1280x800x24"_s});
    while (!m_server.canReadLine() && m_server.waitForReadyRead(startTimeoutMs)) {
    }
    if (m_server.canReadLine())
        m_display = u':' + QString::fromLatin1(m_server.readLine().trimmed());
    else
        qFatal("Xvfb doesn't start: %s", qPrintable(m_server.errorString()));
}

XServer::~XServer()
{
    m_server.terminate();
    if (!m_server.waitForFinished())
        m_server.kill();
}

bool XServer::showsWindow(const QString &title) const
{
    return Connection(m_display).find(title) != 0;
}

bool XServer::closeWindow(const QString &title) const
{
    const Connection connection(m_display);
    const xcb_window_t window = connection.find(title);
    return window != 0 && connection.requestClose(window);
}

} // namespace corvane::test
