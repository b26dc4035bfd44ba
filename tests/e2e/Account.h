#pragma once

// A user and a computer registered on the local server through its registration methods, as the host application
// registers them before the service ever runs.

#include "support/DevServerProcess.h"

#include <string>

namespace e2etest {

struct Account {
    std::string userId;
    std::string computerId;
};

// Registers the user `mail` (a new one) and one computer whose synced folder lies in `korbanholdPath`. Fails the
// calling test when the server refuses either.
Account registerAccount(const testsupport::DevServerProcess& server, const std::string& mail,
    const std::string& korbanholdPath);

}
