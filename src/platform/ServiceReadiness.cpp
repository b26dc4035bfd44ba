#include "platform/ServiceReadiness.h"

#include <systemd/sd-daemon.h>

namespace platform {

void notifyServiceReady()
{
    sd_notify(0, "READY=1");
}

}
