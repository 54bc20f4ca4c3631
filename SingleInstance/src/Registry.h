#pragma once

namespace SingleInstance {

class SingleInstanceController;

/*
 * The controller's entry in the host's registry of objects. Its name is that of the class. Call
 * these functions from the thread of start().
 */

/*! Returns the controller that is registered in this process, or null. Does not pass ownership. */
SingleInstanceController* findController();

/*! Enters \a controller, without owning it. Ignores the result of the registry. */
void registerController(SingleInstanceController& controller);

/*! Removes the entry. Returns the controller, which the caller owns now, or null. */
SingleInstanceController* takeController();

} // namespace SingleInstance
