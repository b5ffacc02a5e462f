// placeholder until the OS library lands
#include "kos/kavle2.h"
