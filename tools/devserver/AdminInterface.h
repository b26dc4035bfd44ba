#pragma once

// The admin interface under /devserver/, outside the service's path: what the server holds, the request log,
// queues to fill, a reset, and the fault script. Every reply is JSON; docs/devserver.md lists the routes.

#include "devserver/Exchange.h"
#include "devserver/Faults.h"
#include "devserver/Store.h"

namespace devserver {

inline constexpr std::string_view adminPrefix = "/devserver/";

class AdminInterface {
public:
    AdminInterface(Store& store, FaultScript& faults);

    // Answers a request whose path starts with adminPrefix.
    Reply handle(const httplib::Request& request);

private:
    Reply faults(const httplib::Request& request);
    Reply listFiles(const httplib::Request& request);
    Reply listRequests(const httplib::Request& request);
    Reply streamContent(std::string_view id);

    Store& m_store;
    FaultScript& m_faults;
};

}
