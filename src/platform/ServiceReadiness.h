#pragma once

// Tells systemd that the service serves (READY=1), for a unit of Type=notify: the first connection that started
// it is then let through. Does nothing when the process was not started by systemd ($NOTIFY_SOCKET unset).

namespace platform {

void notifyServiceReady();

}
