#include <CairnPlatform/Layout.h>

CAIRN_PLATFORM_LAYOUT
