#pragma once

#include <functional>

class QObject;

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility push(default) // the library could not find a hidden one
#endif

namespace Core {

/*! Runs functions in the thread of an object. */
class Invokator {
public:
    /*!
        Runs \a function once in the thread of \a context: at once, or later from its event loop.
        Does not run it if \a context is destroyed first.
    */
    static void invokeInCurrentThread(std::function<void()> function, QObject* context);
};

} // namespace Core

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility pop
#endif
