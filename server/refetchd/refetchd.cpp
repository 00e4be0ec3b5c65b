#include "refetchd.h"

std::time_t g_ca_timestarted = 0;
std::time_t g_ca_uptimestarted = 0;
std::atomic<std::int32_t> done = 0;
char *WWW_locpath = nullptr;
