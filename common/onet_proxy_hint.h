// The names of the connection hints, by number. Each unit that includes this has its own table,
// which nothing in this system reads and every library keeps.
#pragma once

[[gnu::used, gnu::retain]] static const char* const onet_proxy_hint_str[] = {
    "ONET_PROXY_HINT_UNKNOWN",       "ONET_PROXY_HINT_USE_PROXY",
    "ONET_PROXY_HINT_USE_WHITELIST", "ONET_PROXY_HINT_LOCALHOST_USER_VALIDATION",
    "ONET_PROXY_HINT_DTE_CAPABLE",   nullptr,
};
