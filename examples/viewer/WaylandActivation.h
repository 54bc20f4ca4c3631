#pragma once

class QWidget;

/*!
    Has the compositor bring \a window to the front, by the token that XDG_ACTIVATION_TOKEN names,
    and removes that: the first use counts. Does nothing without a token, or elsewhere than on
    Wayland.

    What QWidget::activateWindow() does from Qt 6.4 on. An application with Qt 5 may take over this
    file and its part of the CMakeLists.txt beside it; it uses private headers of Qt, and so is tied
    to the version that it was built with.
*/
void activateOnWayland(QWidget& window);
