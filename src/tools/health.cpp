#include "tools/health.h"

sta_health_numbers sta_health = {};
