#pragma once

namespace SingleInstance {

/*!
    Asks the desktop to bring the first window of the master process to the foreground.

    It uses the desktop of the calling thread. It reports nothing, even if there is no such window
    or the desktop refuses.
*/
void bringMasterToForeground();

} // namespace SingleInstance
