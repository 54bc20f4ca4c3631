#include "StartupNotification.h"

#include <DetachedTask.h>
#include <LazyXcb.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

namespace HostKit {

namespace {

using SingleInstance::xcb_connection_has_error;
using SingleInstance::xcb_create_window;
using SingleInstance::xcb_disconnect;
using SingleInstance::xcb_generate_id;
using SingleInstance::xcb_get_setup;
using SingleInstance::xcb_intern_atom;
using SingleInstance::xcb_intern_atom_reply;
using SingleInstance::xcb_screen_next;
using SingleInstance::xcb_send_event;
using SingleInstance::xcb_setup_roots_iterator;

struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};

/* Returns the "remove" message, quoted as the start-up notification protocol demands. */
QByteArray removal(QByteArray id)
{
    id.replace('\\', "\\\\").replace('"', "\\\"");
    return "remove: ID=\"" + id + '"';
}

xcb_atom_t atom(xcb_connection_t* connection, const char* name)
{
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
    const SingleInstance::Owned<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr));
    return reply ? reply->atom : XCB_NONE;
}

/* The message goes to the root window in parts of 20 bytes, with its terminating null. */
void sendRemoval(const QByteArray& id)
{
    int number = 0;
    const std::unique_ptr<xcb_connection_t, Disconnect> connection(
        SingleInstance::connectToServer(&number));
    if (xcb_connection_has_error(connection.get()))
        return;
    auto screen = xcb_setup_roots_iterator(xcb_get_setup(connection.get()));
    for (; number > 0; --number)
        xcb_screen_next(&screen);
    const xcb_window_t root = screen.data->root;
    const xcb_window_t sender = xcb_generate_id(connection.get());
    xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, sender, root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);

    const QByteArray text = removal(id);
    xcb_client_message_event_t event = {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 8;
    event.window = sender;
    event.type = atom(connection.get(), "_NET_STARTUP_INFO_BEGIN");
    for (int sent = 0; sent <= text.size(); sent += 20) {
        const QByteArray part = text.mid(sent, 20);
        std::fill_n(event.data.data8, 20, uint8_t(0));
        std::copy(part.begin(), part.end(), event.data.data8);
        xcb_send_event(connection.get(), 0, root, XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&event));
        event.type = atom(connection.get(), "_NET_STARTUP_INFO"); // also waits for the server
    }
}

} // namespace

void endStartup(const QByteArray& id)
{
    if (id.isEmpty() || !SingleInstance::xcbLibrary())
        return;
    // On a thread that may be left behind: a server that does not answer blocks xcb for ever.
    const SingleInstance::DetachedTask task([id] { sendRemoval(id); });
    task.waitFor(std::chrono::seconds(2));
}

} // namespace HostKit
