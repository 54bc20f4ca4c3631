#include "DesktopWindows.h"
#include "DetachedTask.h"
#include "LazyXcb.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

/*
 * The desktop operations on X11, by the properties and messages of window managers (EWMH).
 *
 * Each walk has a connection of its own. It asks in batches, so that the number of round trips does
 * not grow with the number of windows. A server that is stopped or grabbed blocks xcb for ever. So
 * only threads that may be left behind talk with the server, and the caller waits for two seconds
 * at most in all. Such a thread shares everything that it touches by shared_ptr.
 *
 * A reply is null if its window is gone. If the server dies, all replies are null. That is normal
 * here, and nobody reports it.
 */

namespace SingleInstance {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto timeout = std::chrono::seconds(2);
constexpr int maxOwnerChain = 8; // dialogs of dialogs
constexpr uint32_t allDesktops = 0xFFFFFFFF;
constexpr char desktop = 0; // there is one

/* A connection to the server that the environment names, once it is open. */
class Connection {
public:
    Connection() = default;
    ~Connection()
    {
        if (isOpen)
            xcb_ewmh_connection_wipe(&ewmh);
        if (xcb)
            xcb_disconnect(xcb); // also one that failed
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool open()
    {
        if (!ewmhLibrary())
            return false;
        xcb = connectToServer(&screen);
        // A failed one has no screens to set up the atoms for.
        isOpen = !xcb_connection_has_error(xcb)
            && xcb_ewmh_init_atoms_replies(&ewmh, xcb_ewmh_init_atoms(xcb, &ewmh), nullptr);
        return isOpen;
    }
    xcb_window_t root() const { return ewmh.screens[screen]->root; }

    xcb_connection_t* xcb = nullptr;
    xcb_ewmh_connection_t ewmh = {};
    int screen = 0;

private:
    bool isOpen = false;
};

struct Window {
    xcb_window_t id;
    std::optional<DWORD> owner; // unless it is unknown or on another machine
};

struct Walk {
    Connection connection;
    std::vector<Window> windows; // topmost first
    bool activated = false;
    Clock::time_point deadline = Clock::now() + timeout;
};

thread_local std::shared_ptr<Walk> currentWalk; // while its callbacks run

/*
 * Runs work(walk) on a thread of its own. Returns whether it ended in time. If it did not, the walk
 * belongs to that thread: do not use it any more.
 */
bool finishes(const std::shared_ptr<Walk>& walk, const std::function<void(Walk&)>& work)
{
    const DetachedTask task([walk, work] { work(*walk); });
    const auto left = walk->deadline - Clock::now();
    return task.waitFor(std::chrono::duration_cast<std::chrono::milliseconds>(left));
}

std::string machineName()
{
    std::array<char, 256> name = {};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::vector<xcb_window_t> windowList(Connection& connection, xcb_get_property_cookie_t cookie)
{
    xcb_ewmh_get_windows_reply_t reply = {};
    if (!xcb_ewmh_get_windows_reply(&connection.ewmh, cookie, &reply, nullptr))
        return {};
    std::vector<xcb_window_t> list(reply.windows, reply.windows + reply.windows_len);
    xcb_ewmh_get_windows_reply_wipe(&reply);
    return list;
}

/*
 * Returns the windows that the window manager lists, topmost first, or nothing without a window
 * manager. A window manager that was killed leaves its lists on the root window, but not its own
 * window.
 */
std::vector<xcb_window_t> listedWindows(Connection& connection)
{
    xcb_ewmh_connection_t* const ewmh = &connection.ewmh;
    const auto stackingCookie = xcb_ewmh_get_client_list_stacking(ewmh, connection.screen);
    const auto listCookie = xcb_ewmh_get_client_list(ewmh, connection.screen);
    const auto managerCookie = xcb_ewmh_get_supporting_wm_check(ewmh, connection.root());
    auto windows = windowList(connection, stackingCookie);
    auto inMappingOrder = windowList(connection, listCookie);
    if (windows.empty())
        windows = std::move(inMappingOrder);

    xcb_window_t manager = XCB_NONE;
    xcb_window_t itself = XCB_NONE;
    xcb_ewmh_get_window_reply(ewmh, managerCookie, &manager, nullptr);
    if (manager != XCB_NONE)
        xcb_ewmh_get_window_reply(ewmh, xcb_ewmh_get_supporting_wm_check(ewmh, manager), &itself,
                                  nullptr);
    if (manager == XCB_NONE || manager != itself)
        return {};
    std::reverse(windows.begin(), windows.end());
    return windows;
}

/* The questions about one window in a batch. */
struct Questions {
    xcb_get_property_cookie_t pid;
    xcb_get_property_cookie_t machine;
};

Questions ask(Connection& connection, xcb_window_t window)
{
    return {xcb_ewmh_get_wm_pid(&connection.ewmh, window),
            xcb_get_property(connection.xcb, 0, window, XCB_ATOM_WM_CLIENT_MACHINE,
                             XCB_GET_PROPERTY_TYPE_ANY, 0, 64)};
}

Window answer(Connection& connection, xcb_window_t id, const Questions& asked,
              const std::string& thisMachine)
{
    uint32_t pid = 0;
    const bool hasPid = xcb_ewmh_get_cardinal_reply(&connection.ewmh, asked.pid, &pid, nullptr);
    const Owned<xcb_get_property_reply_t> machine(
        xcb_get_property_reply(connection.xcb, asked.machine, nullptr));
    std::string machineOfWindow = thisMachine;
    if (machine && xcb_get_property_value_length(machine.get()) > 0)
        machineOfWindow.assign(static_cast<char*>(xcb_get_property_value(machine.get())),
                               static_cast<size_t>(xcb_get_property_value_length(machine.get())));
    Window window = {id, std::nullopt};
    if (hasPid && pid != 0 && machineOfWindow == thisMachine)
        window.owner = pid;
    return window;
}

void lookAround(Walk& walk)
{
    if (!walk.connection.open())
        return;
    const std::vector<xcb_window_t> listed = listedWindows(walk.connection);
    std::vector<Questions> asked;
    asked.reserve(listed.size());
    for (const xcb_window_t window : listed)
        asked.push_back(ask(walk.connection, window));
    const std::string thisMachine = machineName();
    for (size_t i = 0; i < listed.size(); ++i)
        walk.windows.push_back(answer(walk.connection, listed[i], asked[i], thisMachine));
}

const Window* find(const Walk& walk, HWND id)
{
    const auto found = std::find_if(walk.windows.begin(), walk.windows.end(),
                                    [id](const Window& window) { return window.id == id; });
    return found == walk.windows.end() ? nullptr : &*found;
}

xcb_get_property_cookie_t askForOwner(Connection& connection, xcb_window_t window)
{
    return xcb_get_property(connection.xcb, 0, window, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW,
                            0, 1);
}

xcb_window_t answeredOwner(Connection& connection, xcb_get_property_cookie_t cookie)
{
    const Owned<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection.xcb, cookie, nullptr));
    if (!reply || xcb_get_property_value_length(reply.get()) != sizeof(xcb_window_t))
        return XCB_NONE;
    return *static_cast<xcb_window_t*>(xcb_get_property_value(reply.get()));
}

/*
 * Returns the window, and before it the windows that it is a dialog of, if they are listed. Takes
 * one round trip for each dialog.
 */
std::vector<xcb_window_t> ownersFirst(Walk& walk, xcb_window_t window, xcb_window_t owner)
{
    std::vector<xcb_window_t> chain = {window};
    for (int i = 0; i < maxOwnerChain && find(walk, owner); ++i) {
        if (std::count(chain.begin(), chain.end(), owner) > 0)
            break;
        chain.push_back(owner);
        owner = answeredOwner(walk.connection, askForOwner(walk.connection, owner));
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

/* Makes the server send its time, in an event that comes before the replies to later questions. */
void askForTime(Connection& connection)
{
    const xcb_window_t probe = xcb_generate_id(connection.xcb); // goes with the connection
    const uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection.xcb, XCB_COPY_FROM_PARENT, probe, connection.root(), -1, -1, 1, 1,
                      0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    xcb_change_property(connection.xcb, XCB_PROP_MODE_APPEND, probe, XCB_ATOM_WM_NAME,
                        XCB_ATOM_STRING, 8, 0, nullptr);
}

xcb_timestamp_t answeredTime(Connection& connection)
{
    while (const Owned<xcb_generic_event_t> event{xcb_poll_for_queued_event(connection.xcb)}) {
        if ((event->response_type & 0x7F) == XCB_PROPERTY_NOTIFY)
            return reinterpret_cast<xcb_property_notify_event_t*>(event.get())->time;
    }
    return XCB_CURRENT_TIME;
}

/*
 * Asks as a pager does, on behalf of the user, with the current time. That passes the strictest
 * focus stealing prevention. Some window managers only mark a window on another desktop. So this
 * switches to that desktop first.
 */
void activate(Walk& walk, xcb_window_t window)
{
    Connection& connection = walk.connection;
    xcb_ewmh_connection_t* const ewmh = &connection.ewmh;
    askForTime(connection);
    const auto attributesCookie = xcb_get_window_attributes(connection.xcb, window);
    const auto ownerCookie = askForOwner(connection, window);
    const auto desktopCookie = xcb_ewmh_get_wm_desktop(ewmh, window);
    const auto currentCookie = xcb_ewmh_get_current_desktop(ewmh, connection.screen);
    const Owned<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(connection.xcb, attributesCookie, nullptr));
    const xcb_window_t owner = answeredOwner(connection, ownerCookie);
    uint32_t itsDesktop = 0;
    uint32_t currentDesktop = 0;
    const bool hasDesktop = xcb_ewmh_get_cardinal_reply(ewmh, desktopCookie, &itsDesktop, nullptr)
        && itsDesktop != allDesktops;
    const bool hasCurrent =
        xcb_ewmh_get_cardinal_reply(ewmh, currentCookie, &currentDesktop, nullptr);
    if (!attributes)
        return; // gone
    const xcb_timestamp_t now = answeredTime(connection);

    if (hasDesktop && hasCurrent && itsDesktop != currentDesktop)
        xcb_ewmh_request_change_current_desktop(ewmh, connection.screen, itsDesktop, now);
    for (const xcb_window_t each : ownersFirst(walk, window, owner))
        xcb_ewmh_request_change_active_window(ewmh, connection.screen, each,
                                              XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, now, XCB_NONE);
    const Owned<xcb_get_input_focus_reply_t> barrier(
        xcb_get_input_focus_reply(connection.xcb, xcb_get_input_focus(connection.xcb), nullptr));
    walk.activated = barrier != nullptr;
}

} // namespace

} // namespace SingleInstance

using namespace SingleInstance;

HDESK GetThreadDesktop(DWORD /*threadId*/)
{
    return &desktop;
}

BOOL EnumDesktopWindows(HDESK /*desktop*/, WNDENUMPROC callback, LPARAM context)
{
    const auto walk = std::make_shared<Walk>();
    if (!std::getenv("DISPLAY") || !finishes(walk, lookAround))
        return FALSE;
    currentWalk = walk;
    const bool ended =
        std::all_of(walk->windows.begin(), walk->windows.end(),
                    [&](const Window& window) { return callback(window.id, context); });
    currentWalk.reset();
    return ended;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId)
{
    const Window* const known = currentWalk ? find(*currentWalk, window) : nullptr;
    if (known && known->owner)
        *processId = *known->owner;
    return 0;
}

BOOL SetForegroundWindow(HWND window)
{
    if (!currentWalk)
        return FALSE;
    const auto id = static_cast<xcb_window_t>(window);
    return finishes(currentWalk, [id](Walk& walk) { activate(walk, id); })
        && currentWalk->activated;
}
