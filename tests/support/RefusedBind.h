#pragma once

#include <set>

/*! The address families that bind() refuses, as on a machine that lacks them. */
namespace RefusedBind {

extern std::set<int> families;

} // namespace RefusedBind
