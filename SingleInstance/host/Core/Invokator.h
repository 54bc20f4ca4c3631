#pragma once

#include <functional>

class QObject;

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility push(default) // the library finds no hidden definition
#endif

namespace Core {

/*! Runs functions in the thread of an object. */
class Invokator {
public:
    /*!
        Runs \a function once in the thread of \a context, at once or from its event loop, unless
        \a context is destroyed first.
    */
    static void invokeInCurrentThread(std::function<void()> function, QObject* context);
};

} // namespace Core

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility pop
#endif
