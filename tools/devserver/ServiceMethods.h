#pragma once

// The service's methods, by their path below /KorbanholdRestService/.

#include "devserver/Exchange.h"
#include "devserver/Store.h"

#include <string_view>
#include <vector>

namespace devserver {

using MethodHandler = Reply (*)(Store& store, const httplib::Request& request);

// The handler of a method path, or null when the path names no method.
MethodHandler findMethod(std::string_view methodPath);
// Every method path the server answers.
std::vector<std::string_view> methodPaths();

}
