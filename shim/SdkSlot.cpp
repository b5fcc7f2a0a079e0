#include <Shim/Sdk.h>

// A ready-made definition for hosts that have none of their own: linked into the executable, empty
// until its main installs a shim.
Shim::Sdk * Shim::sdk_ = nullptr;
