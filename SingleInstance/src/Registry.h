#pragma once

namespace SingleInstance {

class SingleInstanceController;

/*
 * The controller's entry in the host's registry of objects, under the name of its class. Call these
 * from the thread of start().
 */

/*! Returns the controller that is registered in this process, or null. It is not ours to delete. */
SingleInstanceController* findController();

/*! Enters \a controller, without owning it. What the registry says to it is not looked at. */
void registerController(SingleInstanceController& controller);

/*! Takes the entry out and returns the controller, now the caller's, or null. */
SingleInstanceController* takeController();

} // namespace SingleInstance
