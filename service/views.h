// The book as others read it: JSON for programs and the page, and the text form that Prometheus
// collects. Both are UTF-8; the book's names are ISO 8859-1.
#pragma once

#include "service/ledger.h"

#include <string>

/// One object; times are seconds since the epoch or seconds, rates bytes per second.
std::string status_json(const ledger_view& seen, moment now);

/// Text exposition format, version 0.0.4.
std::string metrics_text(const ledger_view& seen);
