// A session manager of X11 (X Session Management Protocol 1.0), for tests of what a program does at the end
// of a session. Events are printed on standard output, a line each:
//
//   address ADDRESS   value for SESSION_MANAGER
//   ready             a program has registered and saved itself for the first time
//   interact          it asks for the user, which is granted
//   cancelled         it cancels the end of the session
//   saved             it has saved itself: the session may end
//
// The command "shutdown" on standard input announces the end of the session. Nothing ends but by the end of
// standard input.

#include <X11/ICE/ICElib.h>
#include <X11/SM/SMlib.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::vector<SmsConn> clients;
bool shuttingDown = false;

void print(const char *event)
{
    std::printf("%s\n", event);
    std::fflush(stdout);
}

Status onRegister(SmsConn client, SmPointer /*data*/, char *previousId)
{
    SmsRegisterClientReply(client, SmsGenerateClientID(client));
    std::free(previousId);
    // The first save, which the protocol wants of a new client.
    SmsSaveYourself(client, SmSaveLocal, False, SmInteractStyleNone, False);
    return 1;
}

void onInteractRequest(SmsConn client, SmPointer /*data*/, int /*dialogType*/)
{
    print("interact");
    SmsInteract(client);
}

void onInteractDone(SmsConn client, SmPointer /*data*/, Bool cancelShutdown)
{
    if (!cancelShutdown)
        return;
    print("cancelled");
    shuttingDown = false;
    SmsShutdownCancelled(client);
}

void onSaveRequest(SmsConn /*client*/, SmPointer /*data*/, int /*type*/, Bool /*shutdown*/, int /*style*/,
                   Bool /*fast*/, Bool /*global*/)
{
}

void onPhase2Request(SmsConn client, SmPointer /*data*/)
{
    SmsSaveYourselfPhase2(client);
}

void onSaveDone(SmsConn client, SmPointer /*data*/, Bool /*success*/)
{
    static bool first = true;
    if (first)
        print("ready");
    else if (shuttingDown)
        print("saved");
    first = false;
    if (!shuttingDown)
        SmsSaveComplete(client);
}

void onClose(SmsConn client, SmPointer /*data*/, int count, char **reasons)
{
    SmFreeReasons(count, reasons);
    std::erase(clients, client);
    IceConn connection = SmsGetIceConnection(client);
    SmsCleanUp(client);
    IceCloseConnection(connection);
}

void onSetProperties(SmsConn /*client*/, SmPointer /*data*/, int count, SmProp **properties)
{
    std::for_each_n(properties, count, SmFreeProperty);
    std::free(properties);
}

void onDeleteProperties(SmsConn /*client*/, SmPointer /*data*/, int count, char **names)
{
    std::for_each_n(names, count, std::free);
    std::free(names);
}

void onGetProperties(SmsConn client, SmPointer /*data*/)
{
    SmsReturnProperties(client, 0, nullptr);
}

Status onNewClient(SmsConn client, SmPointer /*data*/, unsigned long *mask, SmsCallbacks *callbacks,
                   char ** /*failure*/)
{
    *mask = SmsRegisterClientProcMask | SmsInteractRequestProcMask | SmsInteractDoneProcMask |
            SmsSaveYourselfRequestProcMask | SmsSaveYourselfP2RequestProcMask | SmsSaveYourselfDoneProcMask |
            SmsCloseConnectionProcMask | SmsSetPropertiesProcMask | SmsDeletePropertiesProcMask |
            SmsGetPropertiesProcMask;
    callbacks->register_client.callback = onRegister;
    callbacks->interact_request.callback = onInteractRequest;
    callbacks->interact_done.callback = onInteractDone;
    callbacks->save_yourself_request.callback = onSaveRequest;
    callbacks->save_yourself_phase2_request.callback = onPhase2Request;
    callbacks->save_yourself_done.callback = onSaveDone;
    callbacks->close_connection.callback = onClose;
    callbacks->set_properties.callback = onSetProperties;
    callbacks->delete_properties.callback = onDeleteProperties;
    callbacks->get_properties.callback = onGetProperties;
    clients.push_back(client);
    return 1;
}

Bool acceptEverybody(char * /*host*/)
{
    return True;
}

/// False at the end of standard input.
bool obey()
{
    char words[64];
    if (read(STDIN_FILENO, words, sizeof words) <= 0)
        return false;
    shuttingDown = true;
    for (SmsConn client : clients)
        SmsSaveYourself(client, SmSaveBoth, True, SmInteractStyleAny, False);
    return true;
}

} // namespace

int main()
{
    char error[256] = "";
    int count = 0;
    IceListenObj *listeners = nullptr;
    IceSetIOErrorHandler([](IceConn) {}); // a client that goes is no reason to go too
    if (!SmsInitialize("CORVANE's tests", "1", onNewClient, nullptr, acceptEverybody, sizeof error, error) ||
        !IceListenForConnections(&count, &listeners, sizeof error, error)) {
        std::fprintf(stderr, "session_manager: %s\n", error);
        return 1;
    }
    std::for_each_n(listeners, count,
                    [](IceListenObj listener) { IceSetHostBasedAuthProc(listener, acceptEverybody); });
    print(("address " + std::string(IceComposeNetworkIdList(count, listeners))).c_str());

    std::vector<IceConn> connections;
    for (;;) {
        std::vector<pollfd> watched{{STDIN_FILENO, POLLIN, 0}};
        std::for_each_n(listeners, count, [&watched](IceListenObj listener) {
            watched.push_back({IceGetListenConnectionNumber(listener), POLLIN, 0});
        });
        for (IceConn connection : connections)
            watched.push_back({IceConnectionNumber(connection), POLLIN, 0});
        poll(watched.data(), watched.size(), -1);

        if (watched[0].revents != 0 && !obey())
            return 0;
        const auto firstConnection = static_cast<std::size_t>(count) + 1;
        for (std::size_t i = firstConnection; i < watched.size(); ++i) {
            IceConn connection = connections[i - firstConnection];
            if (watched[i].revents != 0 &&
                IceProcessMessages(connection, nullptr, nullptr) != IceProcessMessagesSuccess)
                return 0; // the program has gone
        }
        for (std::size_t i = 1; i < firstConnection; ++i) {
            IceAcceptStatus status = IceAcceptFailure;
            if (watched[i].revents == 0)
                continue;
            if (IceConn connection = IceAcceptConnection(listeners[i - 1], &status))
                connections.push_back(connection);
        }
    }
}
