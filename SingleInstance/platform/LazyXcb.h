#pragma once

#include <dlfcn.h>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

/*
 * The functions of libxcb and libxcb-ewmh, which are loaded on first use. If the libraries were
 * linked, every launch would take half a millisecond more before it hands over. It raises a window
 * only later. Code in this namespace calls these functions instead of those of the libraries.
 *
 * Any thread. Check first that the library is there.
 */
namespace SingleInstance {

/*! Returns libxcb, or null where it is not installed. */
inline void* xcbLibrary()
{
    static void* const handle = ::dlopen("libxcb.so.1", RTLD_NOW | RTLD_LOCAL);
    return handle;
}

/*! Returns libxcb-ewmh and what it needs, or null where it is not installed. */
inline void* ewmhLibrary()
{
    static void* const handle = ::dlopen("libxcb-ewmh.so.2", RTLD_NOW | RTLD_LOCAL);
    return handle;
}

template <typename Function> class LazyFunction;
template <typename Result, typename... Arguments> class LazyFunction<Result(Arguments...)> {
public:
    constexpr explicit LazyFunction(const char* itsName)
        : name(itsName)
        , isOfEwmh(std::string_view(itsName).substr(0, 8) == "xcb_ewmh")
    {
    }
    Result operator()(Arguments... arguments) const
    {
        void* const library = isOfEwmh ? ewmhLibrary() : xcbLibrary();
        return reinterpret_cast<Result (*)(Arguments...)>(::dlsym(library, name))(arguments...);
    }

private:
    const char* const name;
    const bool isOfEwmh;
};

#define LAZY(name) inline constexpr LazyFunction<decltype(::name)> name(#name)
LAZY(xcb_change_property);
LAZY(xcb_connect);
LAZY(xcb_connection_has_error);
LAZY(xcb_create_window);
LAZY(xcb_disconnect);
LAZY(xcb_ewmh_get_cardinal_reply);
LAZY(xcb_ewmh_get_client_list);
LAZY(xcb_ewmh_get_client_list_stacking);
LAZY(xcb_ewmh_get_current_desktop);
LAZY(xcb_ewmh_get_supporting_wm_check);
LAZY(xcb_ewmh_get_window_reply);
LAZY(xcb_ewmh_get_windows_reply);
LAZY(xcb_ewmh_get_windows_reply_wipe);
LAZY(xcb_ewmh_get_wm_desktop);
LAZY(xcb_ewmh_get_wm_pid);
LAZY(xcb_ewmh_init_atoms);
LAZY(xcb_ewmh_init_atoms_replies);
LAZY(xcb_ewmh_request_change_active_window);
LAZY(xcb_ewmh_request_change_current_desktop);
LAZY(xcb_generate_id);
LAZY(xcb_get_input_focus);
LAZY(xcb_get_input_focus_reply);
LAZY(xcb_get_property);
LAZY(xcb_get_property_reply);
LAZY(xcb_get_property_value);
LAZY(xcb_get_property_value_length);
LAZY(xcb_get_setup);
LAZY(xcb_get_window_attributes);
LAZY(xcb_get_window_attributes_reply);
LAZY(xcb_intern_atom);
LAZY(xcb_intern_atom_reply);
LAZY(xcb_poll_for_queued_event);
LAZY(xcb_screen_next);
LAZY(xcb_send_event);
LAZY(xcb_setup_roots_iterator);
#undef LAZY

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};

/*! Owns a reply or an event of libxcb. */
template <typename Reply> using Owned = std::unique_ptr<Reply, FreeReply>;

/*! Calls xcb_connect() for the server that the environment names. Sets \a screen to its number. */
inline xcb_connection_t* connectToServer(int* screen)
{
    static std::mutex mutex; // libXau keeps a name in a static buffer
    const std::lock_guard<std::mutex> lock(mutex);
    return xcb_connect(nullptr, screen);
}

} // namespace SingleInstance
