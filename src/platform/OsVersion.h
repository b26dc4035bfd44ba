#pragma once

// The AppKit release number the service behaves as, standing for the platform's NSAppKitVersionNumber: it decides
// between the older and newer IPC entry and HTTP transport.
//
// $KORBANHOLD_APPKIT_VERSION, when set to a decimal number (for example "1138.9" to behave as OS 10.7), else the
// number of a current release. The variable is read on every call, so a test can change it between calls. A value
// that is not a decimal number is reported once on the log (again only when it changes) and ignored.

namespace platform {

inline constexpr double currentAppKitVersionNumber = 2487.0;

double appKitVersionNumber();

}
