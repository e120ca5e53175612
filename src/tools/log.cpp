#include "tools/log.h"

int g_main_id = 0;
