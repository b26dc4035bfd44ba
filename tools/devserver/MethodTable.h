#pragma once

// The service's methods by their path below /KorbanholdRestService/: every operation of the client's table of
// server methods (src/messages/Operations.h), each bound to the function that answers it.

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

// The client's path of one operation ends in U+FFFC, which makes it miss its method (the client's behaviour,
// kept); the method itself is named without it. This gives the method's path for a client's path.
std::string_view methodPathOf(std::string_view clientPath);

}
