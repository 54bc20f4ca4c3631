#include "WaylandActivation.h"

#include <QtCore/QByteArray>
#include <QtGui/QGuiApplication>
#include <QtGui/QWindow>
#include <QtWidgets/QWidget>

#include <cstring>
#include <memory>

#include <qpa/qplatformnativeinterface.h>
#include <xdg-activation-v1-client-protocol.h>

namespace {

template <typename Object> using Owned = std::unique_ptr<Object, void (*)(Object*)>;

/* The server's own object, or null where it has none. */
class Activation {
public:
    /* A queue of our own, so that no events of Qt's are handled here. */
    explicit Activation(wl_display* connection)
        : queue(wl_display_create_queue(connection), &wl_event_queue_destroy)
    {
        const Owned<wl_display> wrapper(
            static_cast<wl_display*>(wl_proxy_create_wrapper(connection)),
            [](wl_display* display) { wl_proxy_wrapper_destroy(display); });
        wl_proxy_set_queue(reinterpret_cast<wl_proxy*>(wrapper.get()), queue.get());
        const Owned<wl_registry> registry(wl_display_get_registry(wrapper.get()),
                                          &wl_registry_destroy);
        static constexpr wl_registry_listener listener = {&Activation::announced,
                                                          [](void*, wl_registry*, uint32_t) {}};
        wl_registry_add_listener(registry.get(), &listener, this);
        wl_display_roundtrip_queue(connection, queue.get());
    }

    xdg_activation_v1* get() const { return object.get(); }

private:
    static void announced(void* self, wl_registry* registry, uint32_t name, const char* interface,
                          uint32_t /*version*/)
    {
        if (std::strcmp(interface, xdg_activation_v1_interface.name) == 0)
            static_cast<Activation*>(self)->object.reset(static_cast<xdg_activation_v1*>(
                wl_registry_bind(registry, name, &xdg_activation_v1_interface, 1)));
    }

    const Owned<wl_event_queue> queue; // outlives what is in it
    Owned<xdg_activation_v1> object{nullptr, &xdg_activation_v1_destroy};
};

} // namespace

void activateOnWayland(QWidget& window)
{
    const QByteArray token = qgetenv("XDG_ACTIVATION_TOKEN");
    auto* const native = QGuiApplication::platformNativeInterface();
    auto* const display = native && window.windowHandle()
        ? static_cast<wl_display*>(native->nativeResourceForIntegration("wl_display"))
        : nullptr;
    if (token.isEmpty() || !display)
        return;
    qunsetenv("XDG_ACTIVATION_TOKEN");
    auto* const surface =
        static_cast<wl_surface*>(native->nativeResourceForWindow("surface", window.windowHandle()));
    const Activation activation(display);
    if (surface && activation.get())
        xdg_activation_v1_activate(activation.get(), token.constData(), surface);
    wl_display_flush(display);
}
