#include "tavVersion/tavVersion.h"

const char *tavGetVersion(void) noexcept { return "tavlib " TAV_VERSION; }
