#pragma once

namespace SingleInstance {

/*!
    Asks the desktop to bring the first window of the master process to the foreground.

    Call it from the thread whose desktop is meant. Reports nothing: no such window, or a refusal
    by the desktop, ends it silently.
*/
void bringMasterToForeground();

} // namespace SingleInstance
